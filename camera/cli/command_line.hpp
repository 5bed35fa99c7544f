#pragma once

namespace camera {

/// The whole program `fenwa-camera`; returns its exit code.
[[nodiscard]] int main_program(int argc, char** argv);

}  // namespace camera
