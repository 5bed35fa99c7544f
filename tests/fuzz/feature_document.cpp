// A feature document, which any client may send to the service for on-screen controls.

#include <cstdint>
#include <string_view>

#include "camera/models/feature_document.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        (void)camera::feature_from_document({reinterpret_cast<const char*>(data), size});
    } catch (const camera::BadDocument&) {
    }
    return 0;
}
