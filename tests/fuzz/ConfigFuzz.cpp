#include "Config/Config.h"
#include "Input.h"
#include "State/ForwardingTables.h"
#include "Tables/TableLoading.h"

namespace {

using namespace OvixAgent;

constexpr std::size_t tableBytes = std::size_t{16} << 20U;

/// A refusal names the file and the line.
void checkRefusal(const std::string& what) {
    constexpr std::string_view file = "fuzz:";
    Fuzz::check(what.starts_with(file), "a refusal without the file's name", what);
    const std::size_t digits = what.find_first_not_of("0123456789", file.size());
    Fuzz::check(digits != std::string::npos && digits > file.size() && what[digits] == ':',
                "a refusal without a line", what);
}

} // namespace

/// The text of a configuration: refused with its place, or made into tables.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto config = parseConfig(text, "fuzz");
    if (!config) {
        checkRefusal(config.refused().what);
        return 0;
    }
    ForwardingTables forwarding(config.value());
    forwarding.configure(config.value());
    Mpls::TablePublisher publisher(Tessel::TableMemory::ofProcess(tableBytes));
    if (const auto loaded = loadTables(config.value(), "fuzz", publisher); !loaded) {
        checkRefusal(loaded.refused().what);
        return 0;
    }
    publisher.commit();
    return 0;
}
