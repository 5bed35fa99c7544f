#pragma once

#if __cplusplus <= 201703L
#error "Fenwa's headers are C++20: compile with -std=c++20"
#endif

/// Marks a symbol that the framework's libraries export. Plug-ins are compiled with hidden
/// visibility: without the mark they would search for these types inside themselves.
#define FENWA_API __attribute__((visibility("default")))
