#include "src/frame/verdict_settings.hpp"

#include "fenwa/datatype.hpp"

namespace blocks {

Fenwa::BlockConfiguration verdict_settings(const std::string& verdict_key, const std::string& input,
                                           bool verdict) {
    return {
        {verdict_key, verdict},
        {"termination_cfg.inports", {input.c_str()}},
        {"termination_cfg.types", {Fenwa::datatype_path<bool>}},
        {"termination_cfg." + input + "_def", verdict},
    };
}

}  // namespace blocks
