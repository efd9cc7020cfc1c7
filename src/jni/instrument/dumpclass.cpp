#include "instrument/dumpclass.h"

#include <cstdio>
#include <string>

#include "foundation/Log.h"
#include "instrument/InstrumentConfig.h"
#include "os/RegularFile.h"

void dumpClass(const char* class_name, int class_name_length, const ClassData* data) {
    VEL_TRACE("dumpClass(char*, int, ClassData*)");
    const InstrumentConfig& config = instrumentConfig();
    if (!config.dumpClasses || class_name == nullptr || data == nullptr) return;
    std::string name(class_name, static_cast<std::size_t>(class_name_length));
    for (char& c : name)
        if (c == '/') c = '.';
    std::FILE* const file = os::fopenRegular((config.dumpPath + name + ".class").c_str(), "w");
    if (file == nullptr) return;
    std::fwrite(data->classData, 1, static_cast<std::size_t>(data->classDataLen), file);
    std::fclose(file);
}
