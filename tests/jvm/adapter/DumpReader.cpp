// Walks the records the way a consumer must: it only knows a class's sizes from the class-load
// event it asks for.
#include "DumpReader.h"

#include <string.h>

#include <sstream>

DumpReader* dumpReader = nullptr;

namespace {

std::size_t widthOf(char kind) {
    switch (kind) {
        case 'Z':
        case 'B':
            return 1;
        case 'C':
        case 'S':
            return 2;
        case 'I':
        case 'F':
            return 4;
        default:
            return 8;
    }
}

bool isReference(char kind) {
    return kind == 'L' || kind == '[';
}

char kindOfType(int type) {
    const char* kinds = "L?L?ZCFDBSIJ";
    return type >= 0 && type < 12 ? kinds[type] : '?';
}

}  // namespace

template <typename T>
T DumpReader::get(std::size_t at) const {
    T value{};
    if (at + sizeof value <= bytes_.size()) memcpy(&value, bytes_.data() + at, sizeof value);
    return value;
}

// Level 1 leaves primitive values out.
std::size_t DumpReader::bytesOf(char kind) const {
    return level_ == 2 || isReference(kind) ? widthOf(kind) : 0;
}

void DumpReader::note(const std::string& trouble) {
    if (troubles_.size() < 5) troubles_.push_back(trouble);
}

void DumpReader::learnClass(const JVMPI_Event& event) {
    const auto& load = event.u.class_load;
    ClassInfo& info = classes_[reinterpret_cast<jlong>(load.class_id)];
    if (reinterpret_cast<jlong>(load.class_id) != asked_) note("another class than asked for");
    info.known = true;
    info.name = load.class_name;
    info.interfaces = load.num_interfaces;
    for (jint i = 0; i < load.num_static_fields; ++i) {
        info.statics.emplace_back(load.statics[i].field_name, load.statics[i].field_signature[0]);
    }
    for (jint i = 0; i < load.num_instance_fields; ++i) {
        info.instances.emplace_back(load.instances[i].field_name,
                                    load.instances[i].field_signature[0]);
    }
}

DumpReader::ClassInfo& DumpReader::resolve(jlong id) {
    ClassInfo& info = classes_[id];
    if (!info.known) {
        asked_ = id;
        if (jvmpi_->RequestEvent(JVMPI_EVENT_CLASS_LOAD, reinterpret_cast<void*>(id)) !=
                JVMPI_SUCCESS ||
            !classes_[id].known) {
            note("class " + std::to_string(id) + " does not resolve");
        }
    }
    return classes_[id];
}

void DumpReader::skipRoot(int tag, std::size_t extra, bool hasFrame) {
    const jlong object = get<jlong>(cursor_);
    const jlong thread = extra >= 8 ? get<jlong>(cursor_ + 8) : 0;
    const jint frame = hasFrame ? get<jint>(cursor_ + 16) : -1;
    roots_.emplace(object, Root{tag, thread, frame});
    cursor_ += 8 + extra;
}

void DumpReader::readClass(std::size_t at) {
    const jlong id = get<jlong>(at + 1);
    objects_[id] = {JVMPI_GC_CLASS_DUMP, at};
    ClassInfo& info = resolve(id);
    info.super = get<jlong>(at + 9);
    cursor_ = at + 61 + 8 * static_cast<std::size_t>(info.interfaces);
    cursor_ += 2 + 11 * std::size_t{get<std::uint16_t>(cursor_)};
    info.staticsAt = cursor_;
    for (const auto& [name, kind] : info.statics) cursor_ += bytesOf(kind);
}

void DumpReader::readInstance(std::size_t at) {
    const jlong id = get<jlong>(at + 1);
    const jlong type = get<jlong>(at + 9);
    if (!objects_.emplace(id, Record{JVMPI_GC_INSTANCE_DUMP, at}).second) note("an id twice");
    const ClassInfo& info = resolve(type);
    ++counts_[info.name];
    cursor_ = at + 21 + get<std::uint32_t>(at + 17);
}

void DumpReader::readObjects(std::size_t at) {
    if (!objects_.emplace(get<jlong>(at + 1), Record{JVMPI_GC_OBJ_ARRAY_DUMP, at}).second) {
        note("an id twice");
    }
    ++counts_["[objects]"];
    cursor_ = at + 21 + 8 * std::size_t{get<std::uint32_t>(at + 9)};
    if (const jlong element = get<jlong>(at + 13)) resolve(element);
}

void DumpReader::readPrimitives(std::size_t at) {
    if (!objects_.emplace(get<jlong>(at + 1), Record{JVMPI_GC_PRIM_ARRAY_DUMP, at}).second) {
        note("an id twice");
    }
    const char kind = kindOfType(get<std::uint8_t>(at + 13));
    if (kind == '?' || kind == 'L') note("an element type that is none");
    ++counts_[std::string("[") + kind];
    cursor_ = at + 14;
    if (level_ == 2) cursor_ += widthOf(kind) * get<std::uint32_t>(at + 9);
}

bool DumpReader::readRecord() {
    const std::size_t at = cursor_;
    const int tag = get<std::uint8_t>(cursor_++);
    switch (tag) {
        case JVMPI_GC_ROOT_UNKNOWN:
        case JVMPI_GC_ROOT_STICKY_CLASS:
        case JVMPI_GC_ROOT_MONITOR_USED:
            skipRoot(tag, 0, false);
            break;
        case JVMPI_GC_ROOT_JNI_GLOBAL:
        case JVMPI_GC_ROOT_NATIVE_STACK:
        case JVMPI_GC_ROOT_THREAD_BLOCK:
            skipRoot(tag, 8, false);
            break;
        case JVMPI_GC_ROOT_JNI_LOCAL:
        case JVMPI_GC_ROOT_JAVA_FRAME:
            skipRoot(tag, 12, true);
            break;
        case JVMPI_GC_CLASS_DUMP:
            readClass(at);
            break;
        case JVMPI_GC_INSTANCE_DUMP:
            readInstance(at);
            break;
        case JVMPI_GC_OBJ_ARRAY_DUMP:
            readObjects(at);
            break;
        case JVMPI_GC_PRIM_ARRAY_DUMP:
            readPrimitives(at);
            break;
        default:
            note("tag " + std::to_string(tag) + " at " + std::to_string(at));
            return false;
    }
    return true;
}

bool DumpReader::readLevelZero() {
    const int type = get<std::uint8_t>(cursor_);
    if (kindOfType(type) == '?') {
        note("type " + std::to_string(type));
        return false;
    }
    if (!objects_.emplace(get<jlong>(cursor_ + 1), Record{0, cursor_}).second) note("an id twice");
    cursor_ += 9;
    return true;
}

std::size_t DumpReader::instanceBytes(jlong type) const {
    std::size_t bytes = 0;
    while (type != 0) {
        const auto found = classes_.find(type);
        if (found == classes_.end()) return SIZE_MAX;
        for (const auto& [name, kind] : found->second.instances) {
            bytes += bytesOf(kind);
        }
        type = found->second.super;
    }
    return bytes;
}

// What only shows when all records are known: sizes that agree with the classes, references that
// lead somewhere.
void DumpReader::checkReferences() {
    const auto leads = [&](jlong id) {
        return id == 0 || objects_.count(id) != 0 || classes_.count(id) != 0;
    };
    for (const auto& [id, record] : objects_) {
        if (record.tag == JVMPI_GC_INSTANCE_DUMP) {
            const jlong type = get<jlong>(record.at + 9);
            if (get<std::uint32_t>(record.at + 17) != instanceBytes(type))
                note("an instance's size is wrong");
            std::size_t at = record.at + 21;
            for (jlong c = type; c != 0 && classes_.count(c) != 0; c = classes_.at(c).super) {
                for (const auto& [name, kind] : classes_.at(c).instances) {
                    const bool reference = isReference(kind);
                    if (reference && !leads(get<jlong>(at)) && !resolve(get<jlong>(at)).known) {
                        note("field " + classes_.at(c).name + "." + name + " leads nowhere");
                    }
                    at += bytesOf(kind);
                }
            }
        } else if (record.tag == JVMPI_GC_OBJ_ARRAY_DUMP) {
            const std::size_t count = get<std::uint32_t>(record.at + 9);
            for (std::size_t i = 0; i < count; ++i) {
                const jlong element = get<jlong>(record.at + 21 + 8 * i);
                if (!leads(element) && !resolve(element).known) {
                    note("an array element leads nowhere");
                }
            }
        }
    }
    for (const auto& [id, root] :
         roots_) {  // array and primitive classes have no record, but they resolve
        if (id == 0 || (!leads(id) && !resolve(id).known)) note("a root leads nowhere");
    }
}

void DumpReader::read(const JVMPI_Event& event, JVMPI_Interface& jvmpi) {
    const auto& dump = event.u.heap_dump;
    jvmpi_ = &jvmpi;
    level_ = dump.dump_level;
    bytes_.assign(dump.begin, dump.end);
    bool going = true;
    while (going && cursor_ < bytes_.size()) going = level_ == 0 ? readLevelZero() : readRecord();
    ended_ = cursor_ == bytes_.size();
    if (ended_ && level_ == 2) checkReferences();
}

std::string DumpReader::summary() const {
    std::ostringstream text;
    text << "level=" << level_ << "|bytes=" << bytes_.size() << "|objects=" << objects_.size()
         << "|roots=" << roots_.size() << "|ended=" << ended_ << "|troubles=";
    for (const std::string& trouble : troubles_) text << trouble << ';';
    return text.str();
}

std::string DumpReader::value(std::size_t at, char kind) const {
    switch (kind) {
        case 'Z':
        case 'B':
            return std::to_string(get<std::int8_t>(at));
        case 'C':
            return std::to_string(get<std::uint16_t>(at));
        case 'S':
            return std::to_string(get<std::int16_t>(at));
        case 'I':
        case 'F':
            return std::to_string(get<std::int32_t>(at));
        default:
            return std::to_string(get<std::int64_t>(at));
    }
}

std::string DumpReader::field(jlong object, jlong declaringClass, const std::string& name) const {
    const auto record = objects_.find(object);
    if (record == objects_.end() || record->second.tag != JVMPI_GC_INSTANCE_DUMP) return "absent";
    std::size_t at = record->second.at + 21;
    for (jlong type = get<jlong>(record->second.at + 9); type != 0;) {
        const auto info = classes_.find(type);
        if (info == classes_.end()) return "absent";
        for (const auto& [fieldName, kind] : info->second.instances) {
            if (bytesOf(kind) != 0 && type == declaringClass && fieldName == name)
                return value(at, kind);
            at += bytesOf(kind);
        }
        type = info->second.super;
    }
    return "absent";
}

std::string DumpReader::staticField(jlong type, const std::string& name) const {
    const auto info = classes_.find(type);
    if (info == classes_.end() || info->second.staticsAt == 0) return "absent";
    std::size_t at = info->second.staticsAt;
    for (const auto& [fieldName, kind] : info->second.statics) {
        if (bytesOf(kind) != 0 && fieldName == name) return value(at, kind);
        at += bytesOf(kind);
    }
    return "absent";
}

std::string DumpReader::element(jlong array, jlong index) const {
    const auto record = objects_.find(array);
    if (record == objects_.end()) return "absent";
    const std::size_t at = record->second.at;
    if (record->second.tag == JVMPI_GC_OBJ_ARRAY_DUMP) {
        return value(at + 21 + 8 * static_cast<std::size_t>(index), 'L');
    }
    if (record->second.tag != JVMPI_GC_PRIM_ARRAY_DUMP) return "absent";
    const char kind = kindOfType(get<std::uint8_t>(at + 13));
    return value(at + 14 + widthOf(kind) * static_cast<std::size_t>(index), kind);
}

std::string DumpReader::interfaces(jlong type, std::size_t at) const {
    std::string ids;
    for (jint i = 0; i < classes_.at(type).interfaces; ++i)
        ids += " " + value(at + 8 * static_cast<std::size_t>(i), 'L');
    return ids;
}

std::string DumpReader::kind(jlong object) const {
    const auto record = objects_.find(object);
    if (record == objects_.end()) return "absent";
    const std::size_t at = record->second.at;
    const std::string count = std::to_string(get<std::uint32_t>(at + 9));
    switch (record->second.tag) {
        case JVMPI_GC_INSTANCE_DUMP:
            return "instance " + value(at + 9, 'L');
        case JVMPI_GC_OBJ_ARRAY_DUMP:
            return "objects " + count + " " + value(at + 13, 'L');
        case JVMPI_GC_PRIM_ARRAY_DUMP:
            return "primitives " + count + " " + std::to_string(get<std::uint8_t>(at + 13));
        case JVMPI_GC_CLASS_DUMP:
            return "class " + value(at + 9, 'L') + interfaces(object, at + 61);
        default:
            return "level 0, type " + std::to_string(get<std::uint8_t>(at));
    }
}

std::vector<std::string> DumpReader::instanceCounts() const {
    std::vector<std::string> lines;
    for (const auto& [name, count] : counts_) lines.push_back(name + " " + std::to_string(count));
    return lines;
}

std::vector<std::string> DumpReader::roots(jlong object) const {
    std::vector<std::string> lines;
    const auto [first, last] = roots_.equal_range(object);
    for (auto at = first; at != last; ++at) {
        lines.push_back(std::to_string(at->second.tag) + " " + std::to_string(at->second.thread) +
                        " " + std::to_string(at->second.frame));
    }
    return lines;
}
