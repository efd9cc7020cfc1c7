// Reads the archive as the format's own readers do: from the directory at its end.
#include "launch/AgentJar.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

#include "os/RegularFile.h"

namespace launch {
namespace {

constexpr std::string_view kManifest = "META-INF/MANIFEST.MF";
constexpr std::string_view kStartClass = "com/velora/agent/Premain.class";
constexpr std::string_view kStartName = "com.velora.agent.Premain";
constexpr std::size_t kLargestJar = std::size_t{64} << 20;  // bytes

// Little-endian numbers of an untrusted file; a read past its end makes the reader bad for good.
class Fields {
public:
    Fields(std::string_view bytes, std::size_t at) : bytes_(bytes), at_(at) {}

    std::uint32_t u16() { return number(2); }
    std::uint32_t u32() { return number(4); }
    std::string_view text(std::size_t length) {
        const std::string_view taken = has(length) ? bytes_.substr(at_, length) : "";
        at_ += length;
        return taken;
    }
    void skip(std::size_t length) { text(length); }
    bool good() const { return good_; }
    std::size_t at() const { return at_; }

private:
    bool has(std::size_t length) {
        good_ = good_ && at_ <= bytes_.size() && length <= bytes_.size() - at_;
        return good_;
    }
    std::uint32_t number(std::size_t length) {
        std::uint32_t value = 0;
        const std::string_view taken = text(length);
        for (std::size_t i = taken.size(); i > 0; --i)
            value = value << 8 | static_cast<unsigned char>(taken[i - 1]);
        return value;
    }

    std::string_view bytes_;
    std::size_t at_;
    bool good_ = true;
};

std::uint32_t crc32(std::string_view bytes) {
    static const auto table = [] {
        std::array<std::uint32_t, 256> made{};
        for (std::uint32_t n = 0; n < made.size(); ++n) {
            std::uint32_t value = n;
            for (int bit = 0; bit < 8; ++bit)
                value = (value & 1) != 0 ? 0xEDB88320U ^ (value >> 1) : value >> 1;
            made[n] = value;
        }
        return made;
    }();
    std::uint32_t sum = 0xFFFFFFFFU;
    for (const char c : bytes) sum = table[(sum ^ static_cast<unsigned char>(c)) & 0xFF] ^ sum >> 8;
    return ~sum;
}

// One entry of the archive's directory.
struct Entry {
    std::string_view name;
    bool stored = false;
    std::uint32_t crc = 0;
    std::uint32_t packed = 0;  // bytes
    std::uint32_t size = 0;    // bytes
    std::uint32_t offset = 0;  // of its local header
};

// False when there is no entry at this place.
bool readEntry(Fields& in, Entry& entry) {
    if (in.u32() != 0x02014b50) return false;
    in.skip(6);
    entry.stored = in.u16() == 0;
    in.skip(4);
    entry.crc = in.u32();
    entry.packed = in.u32();
    entry.size = in.u32();
    const std::uint32_t name = in.u16();
    const std::uint32_t extra = in.u16();
    const std::uint32_t comment = in.u16();
    in.skip(8);
    entry.offset = in.u32();
    entry.name = in.text(name);
    in.skip(std::size_t{extra} + comment);
    return in.good();
}

// The entry's bytes as they lie in the archive; nothing when they are damaged.
std::optional<std::string_view> bytesOf(std::string_view archive, const Entry& entry) {
    Fields in(archive, entry.offset);
    if (in.u32() != 0x04034b50) return std::nullopt;
    in.skip(22);
    const std::uint32_t name = in.u16();
    const std::uint32_t extra = in.u16();
    const bool sameName = in.text(name) == entry.name;
    in.skip(extra);
    const std::string_view bytes = in.text(entry.packed);
    if (!in.good() || !sameName) return std::nullopt;
    if (entry.stored && (entry.packed != entry.size || crc32(bytes) != entry.crc))
        return std::nullopt;
    return bytes;
}

// Where the directory's end record begins: a comment of any text may follow it.
std::size_t endRecord(std::string_view archive) {
    constexpr std::size_t kRecord = 22;
    if (archive.size() < kRecord) return std::string_view::npos;
    return archive.rfind("PK\5\6", archive.size() - kRecord);
}

// The value of a manifest's attribute; empty when it is not there.
std::string_view attribute(std::string_view manifest, std::string_view key) {
    while (!manifest.empty()) {
        const std::string_view line = manifest.substr(0, manifest.find_first_of("\r\n"));
        if (line.starts_with(key)) return line.substr(key.size());
        const std::size_t next = manifest.find('\n');
        manifest.remove_prefix(next == std::string_view::npos ? manifest.size() : next + 1);
    }
    return {};
}

std::string troubleIn(std::string_view archive) {
    const std::size_t end = endRecord(archive);
    if (end == std::string_view::npos) return "is no archive, or not a whole one";
    Fields tail(archive, end + 10);
    const std::uint32_t entries = tail.u16();
    tail.skip(4);
    Fields directory(archive, tail.u32());
    bool startClass = false;
    std::string_view manifest;
    for (std::uint32_t n = 0; n < entries; ++n) {
        Entry entry;
        if (!readEntry(directory, entry)) return "is a damaged archive";
        const auto bytes = bytesOf(archive, entry);
        if (!bytes) return "is damaged in its entry " + std::string(entry.name);
        if (!entry.stored) return "has been packed anew, with compressed entries";
        if (entry.name == kManifest) manifest = *bytes;
        startClass |= entry.name == kStartClass;
    }
    if (manifest.empty()) return "has no manifest";
    if (attribute(manifest, "Premain-Class: ") != kStartName)
        return "has a manifest that does not name com.velora.agent.Premain";
    if (!startClass) return "does not hold com.velora.agent.Premain";
    // Written by the build: a class that is missing would be noticed in the middle of the start.
    if (attribute(manifest, "Velora-Entries: ") != std::to_string(entries))
        return "does not hold all of its classes";
    return {};
}

}  // namespace

std::string troubleWithJar(const std::string& path) {
    const auto archive = os::readRegular(path, kLargestJar);
    if (!archive) return "cannot read " + path + ": " + strerror(errno);
    const std::string trouble = troubleIn(*archive);
    return trouble.empty() ? trouble : path + " " + trouble;
}

}  // namespace launch
