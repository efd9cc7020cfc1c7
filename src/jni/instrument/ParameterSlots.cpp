#include "instrument/ParameterSlots.h"

namespace {

constexpr std::string_view kThis = "L;";  // some class; its name does not matter here
constexpr std::string_view kString = "Ljava/lang/String;";

// The first of these parameter types; the rest of the descriptor begins behind it.
std::string_view firstType(std::string_view types) {
    std::size_t end = types.find_first_not_of('[');
    end = types[end] == 'L' ? types.find(';', end) + 1 : end + 1;
    return types.substr(0, end);
}

// Calls visit(slot, type) for each value that the method finds in its locals; the slots they take.
template <class Visit>
int forEachParameter(std::string_view descriptor, bool isStatic, Visit visit) {
    int slot = 0;
    if (!isStatic) visit(slot++, kThis);
    descriptor.remove_prefix(1);  // the opening bracket
    while (descriptor.front() != ')') {
        const std::string_view type = firstType(descriptor);
        visit(slot, type);
        slot += type == "J" || type == "D" ? 2 : 1;
        descriptor.remove_prefix(type.size());
    }
    return slot;
}

bool isInt(std::string_view type) {
    return type.size() == 1 && std::string_view("IZBCS").find(type[0]) != std::string_view::npos;
}

}  // namespace

int parameterSlots(std::string_view descriptor, bool isStatic) {
    return forEachParameter(descriptor, isStatic, [](int, std::string_view) {});
}

bool slotsFit(std::string_view descriptor, const ParameterIndex& at, bool isStatic) {
    bool loader = false, name = false, bytes = false, offset = false, length = false;
    forEachParameter(descriptor, isStatic, [&](int slot, std::string_view type) {
        loader |= slot == at.classLoader && type[0] == 'L' && type != kString;
        name |= slot == at.className && type == kString;
        bytes |= slot == at.byteArray && type == "[B";
        offset |= slot == at.offset && isInt(type);
        length |= slot == at.length && isInt(type);
    });
    return loader && name && bytes && offset && length && at.offset != at.length;
}
