#include "instrument/classfilter.h"

#include <cstring>
#include <mutex>
#include <shared_mutex>

#include "foundation/Log.h"

std::atomic<char**> include_list{nullptr};
std::atomic<char**> exclude_list{nullptr};

const char* const internal_include_list[] = {
    "com/kor/zs/runtime/Server",
    "com/kor/tvc/cm/proxy/VeloraStatementProxy",
    "com/kor/tvc/cm/proxy/VeloraPreparedStatementProxy",
    "com/kor/tvc/cm/proxy/VeloraCallableStatementProxy",
    nullptr,
};

const char* const primitive_list[] = {
    "void", "byte", "long", "short", "char", "boolean", "int", "float", "double", nullptr,
};

namespace {

constexpr char kOwnPackage[] = "com/velora/";

// Guards the lists' memory, not the pointers: readers hold it shared for one walk. Innermost lock,
// nothing is called while it is held.
std::shared_mutex listsInUse;

bool isListed(const char* name, const char* const* list) {
    for (; *list != nullptr; ++list)
        if (std::strcmp(name, *list) == 0) return true;
    return false;
}

// The entry's last character stands for "anything from here" and is not compared.
bool startsWithAny(const char* name, const char* const* list) {
    if (list == nullptr) return false;
    for (; *list != nullptr; ++list) {
        const std::size_t length = std::strlen(*list);
        if (length > 0 && std::strncmp(name, *list, length - 1) == 0) return true;
    }
    return false;
}

}  // namespace

int isClassFiltered(const char* className) {
    VEL_TRACE("isClassFiltered(const char*)");
    if (className == nullptr) return kInstrumentClass;
    if (std::strncmp(className, kOwnPackage, sizeof kOwnPackage - 1) == 0) return kFilteredOut;
    if (isListed(className, internal_include_list)) return kInternalInclude;
    const std::shared_lock reading(listsInUse);
    if (startsWithAny(className, include_list.load())) return kInstrumentClass;
    if (startsWithAny(className, exclude_list.load())) return kFilteredOut;
    return kInstrumentClass;
}

void publishFilterLists(char** include, char** exclude) {
    const std::unique_lock writing(listsInUse);
    include_list.store(include);
    exclude_list.store(exclude);
}

bool isPrimitiveName(const char* className) {
    return className != nullptr && isListed(className, primitive_list);
}
