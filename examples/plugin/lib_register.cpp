#include <fenwa/fenwa.hpp>

#include "blocks/moving_average.hpp"

int lib_register_cpp(Fenwa::IRegistry* registry) {
    registry->register_block<blocks::MovingAverage>("MovingAverage");
    return 0;
}
