// Joins one target to libFuzzer.
#include <cstddef>
#include <cstdint>

int VELTO_FUZZ_TARGET(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return VELTO_FUZZ_TARGET(data, size);
}
