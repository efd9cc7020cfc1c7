// The records of the VM and of the collector itself: classes, methods, collections, losses.
#include "event/RecordParts.h"
#include "instrument/class.h"

using namespace recordparts;

namespace {

bool addClassLoad(const jclass_t& clazz, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_CLASS_LOAD_RECORD);
    out.putInt(clazz.sequenceID);
    out.writeString(clazz.class_name);
    out.putInt(static_cast<std::uint32_t>(clazz.num_methods));
    for (int i = 0; i < clazz.num_methods; ++i) {
        out.putInt(low32(clazz.methods[i].method_id.load(std::memory_order_relaxed)));
        out.writeString(clazz.methods[i].method_name);
        out.writeString(clazz.methods[i].method_signature);
    }
    return finish(out);
}

bool addClassUnload(const jclass_t& clazz, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_CLASS_UNLOAD_RECORD);
    out.putInt(clazz.sequenceID);
    out.putInt(low32(clazz.class_id.load(std::memory_order_relaxed)));
    out.putInt(static_cast<std::uint32_t>(clazz.num_methods));
    for (int i = 0; i < clazz.num_methods; ++i)
        out.putInt(low32(clazz.methods[i].method_id.load(std::memory_order_relaxed)));
    return finish(out);
}

}  // namespace

bool ProtocolVisitor::addToBuffer(ClassEvent* evt, char** buf) {
    if (evt->classData == nullptr) [[unlikely]]
        return refuseNoRecord(*evt);
    return evt->subType_ == LOAD ? addClassLoad(*evt->classData, buf)
                                 : addClassUnload(*evt->classData, buf);
}

bool ProtocolVisitor::addToBuffer(MethodEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(startOrEnd(*evt, DC2PS_METHOD_ENTRY_RECORD));
    out.putInt(evt->threadId_);
    out.putInt(low32(evt->method_id));
    out.putInt(evt->timeSec_);
    out.putInt(evt->timeUSec_);
    out.putLong(evt->cpuTime_);
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(ExceptionEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_EXCEPTION_RECORD);
    out.writeString(evt->exception);
    out.writeString(evt->class_name);
    out.writeString(evt->method_name);
    out.writeString(evt->stacktrace);
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(GCEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(startOrEnd(*evt, DC2PS_GC_START_RECORD));
    out.putInt(evt->threadId_);
    out.putInt(evt->timeSec_);
    out.putInt(evt->timeUSec_);
    if (!isStart(*evt)) {
        out.putLong(evt->used_objects);
        out.putLong(evt->used_object_space);
        out.putLong(evt->total_object_space);
    }
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(SamplingEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_SAMPLING_RATE_RECORD);
    for (const std::int32_t rate : evt->probeLevels) out.putInt(static_cast<std::uint32_t>(rate));
    out.putByte(evt->useDefault == 1 ? 1 : 0);
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(DroppedEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_DROPPED_RECORD);
    out.putInt(evt->threadId_);
    out.putInt(static_cast<std::uint32_t>(evt->dropRecStartCnt));
    out.putInt(static_cast<std::uint32_t>(evt->dropRecEndCnt));
    out.putInt(static_cast<std::uint32_t>(evt->dropMethStartCnt));
    out.putInt(static_cast<std::uint32_t>(evt->dropMethEndCnt));
    out.putInt(static_cast<std::uint32_t>(evt->dropSQLStartCnt));
    out.putInt(static_cast<std::uint32_t>(evt->dropSQLEndCnt));
    return finish(out);
}

bool ProtocolVisitor::addToBuffer(PSStatusEvent* evt, char** buf) {
    WireWriter out(buf);
    out.putByte(DC2PS_PSSTATUS_RECORD);
    out.writeString(evt->status_);
    return finish(out);
}
