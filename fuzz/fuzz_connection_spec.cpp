#include <cstdint>
#include <cstdlib>
#include <string>

#include "agent/store/ConnectionSpec.h"
#include "common/exc.h"

// A connection specification is refused or read; what is read is written to a document that reads and writes the same,
// and can be described.

namespace {

void Use(const agent::connection_spec_t& spec) {
    if (agent::Describe(spec).empty()) {
        std::abort();
    }
    const std::string text = agent::WriteConnectionSpec(spec);
    const agent::connection_spec_t again = agent::ReadConnectionSpec(text);
    if (again.index() != spec.index() || agent::WriteConnectionSpec(again) != text) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    agent::connection_spec_t spec;
    try {
        spec = agent::ReadConnectionSpec({reinterpret_cast<const char*>(data), size});
    } catch (const exc::CExc&) {
        return 0;
    }
    Use(spec);
    return 0;
}
