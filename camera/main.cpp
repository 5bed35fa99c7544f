#include "camera/cli/command_line.hpp"

int main(int argc, char** argv) {
    return camera::main_program(argc, argv);
}
