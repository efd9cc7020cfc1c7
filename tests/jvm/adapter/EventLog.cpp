// Turns events into lines.
#include "EventLog.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <mutex>
#include <sstream>
#include <utility>

#include "jvmpi/gc_edge.h"

namespace {

std::mutex lock;
std::vector<std::pair<jint, std::string>> events;  // type without the request bit, line

// Values are separated by '|', which occurs in no class or thread name here.
class Line {
public:
    template <typename T>
    Line& add(const char* key, const T& value) {
        text_ << key << '=' << value << '|';
        return *this;
    }
    Line& add(const char* key, const char* value) {
        text_ << key << '=' << (value == nullptr ? "<null>" : value) << '|';
        return *this;
    }
    Line& add(const char* key, char* value) { return add(key, static_cast<const char*>(value)); }
    Line& addId(const char* key, const void* id) { return add(key, reinterpret_cast<jlong>(id)); }
    std::string text() const { return text_.str(); }

private:
    std::ostringstream text_;
};

// When the pause began or ended; 0: not told.
jlong edgeMicros(const JVMPI_Event& event) {
    const GcEdge edge = GcEdge::of(&event);
    return edge.known() ? jlong{edge.sec} * 1000000 + edge.usec : 0;
}

void addFields(Line& line, const char* key, jint count, const JVMPI_Field* fields) {
    std::string text;
    for (jint i = 0; i < count; ++i) {
        text += std::string(fields[i].field_name) + ":" + fields[i].field_signature + ",";
    }
    line.add(key, text);
}

void addClass(Line& line, const JVMPI_Event& event) {
    const auto& load = event.u.class_load;
    line.add("class", load.class_name).add("source", load.source_name);
    line.add("interfaces", load.num_interfaces).addId("id", load.class_id);
    std::string methods;
    for (jint i = 0; i < load.num_methods; ++i) {
        const JVMPI_Method& method = load.methods[i];
        methods += std::string(method.method_name) + method.method_signature + ":" +
                   std::to_string(method.start_lineno) + "-" + std::to_string(method.end_lineno) +
                   ",";
    }
    line.add("methods", methods);
    addFields(line, "statics", load.num_static_fields, load.statics);
    addFields(line, "instances", load.num_instance_fields, load.instances);
}

}  // namespace

void logEvent(const JVMPI_Event& event) {
    const jint type = event.event_type & ~JVMPI_REQUESTED_EVENT;
    Line line;
    line.add("type", type);
    line.add("requested", (event.event_type & JVMPI_REQUESTED_EVENT) != 0 ? 1 : 0);
    line.addId("env", event.env_id).add("tid", syscall(SYS_gettid));
    switch (type) {
        case JVMPI_EVENT_THREAD_START:
            line.add("thread", event.u.thread_start.thread_name);
            line.add("group", event.u.thread_start.group_name);
            line.add("parent", event.u.thread_start.parent_name);
            line.addId("id", event.u.thread_start.thread_id);
            line.addId("meant", event.u.thread_start.thread_env_id);
            break;
        case JVMPI_EVENT_CLASS_LOAD:
            addClass(line, event);
            break;
        case JVMPI_EVENT_CLASS_UNLOAD:
            line.addId("id", event.u.class_unload.class_id);
            break;
        case JVMPI_EVENT_GC_START:
            line.add("edge", edgeMicros(event));
            break;
        case JVMPI_EVENT_GC_FINISH:
            line.add("edge", edgeMicros(event));
            line.add("objects", event.u.gc_info.used_objects);
            line.add("used", event.u.gc_info.used_object_space);
            line.add("total", event.u.gc_info.total_object_space);
            break;
        default:
            break;
    }
    const std::lock_guard guard(lock);
    events.emplace_back(type, line.text());
}

std::vector<std::string> takeEvents(jint type, jint orType) {
    const std::lock_guard guard(lock);
    std::vector<std::string> taken;
    std::vector<std::pair<jint, std::string>> rest;
    for (auto& event : events) {
        if (event.first == type || event.first == orType) {
            taken.push_back(std::move(event.second));
        } else {
            rest.push_back(std::move(event));
        }
    }
    events.swap(rest);
    return taken;
}
