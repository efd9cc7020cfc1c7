// Writes seeds for decode_fuzz: a stream with each kind of record, and one with all of them.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/GoldenRecords.h"
#include "support/WireWriter.h"

namespace {

void write(const std::filesystem::path& path, const byhand::Bytes& stream) {
    std::ofstream file(path, std::ios::binary);
    file.put('\x10');  // cut into pieces of 17 bytes
    file.write(reinterpret_cast<const char*>(stream.data()),
               static_cast<std::streamsize>(stream.size()));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "Usage: decode_fuzz_seeds FOLDER\n");
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    std::filesystem::create_directories(folder);
    byhand::Writer all;
    for (const GoldenRecord& each : goldenRecords()) {
        const byhand::Bytes record = byhand::hex(each.hex);
        write(folder / each.name, byhand::joined({byhand::initPacket(), byhand::packet({record})}));
        all.raw(record);
    }
    write(folder / "all", byhand::Writer()
                              .raw(byhand::initPacket())
                              .u8(0)
                              .u32(static_cast<std::uint32_t>(goldenRecords().size()))
                              .trailer()
                              .raw(all.done())
                              .done());
    return 0;
}
