// Our own declaration of the Java Virtual Machine Profiler Interface, version 1 (1_1 and 1_2 append
// members). Layout and numbers are those of the VMs that offered it, for 64-bit Linux; the static
// assertions at the end pin them.
#pragma once

#include <jni.h>

#include <cstddef>

extern "C" {

typedef struct _jobjectID* jobjectID;  // opaque object id, stable for the object's life
typedef struct _JVMPI_RawMonitor* JVMPI_RawMonitor;  // opaque monitor
typedef void (*jvmpi_void_function_of_void)(void*);

#define JVMPI_VERSION_1 ((jint)0x10000001)
#define JVMPI_VERSION_1_1 ((jint)0x10000002)
#define JVMPI_VERSION_1_2 ((jint)0x10000003)
#define JVMPI_VERSION_ADAPTER ((jint)0x1000FEED)  // known to our adapter only: today's VM behind it

enum {
    JVMPI_SUCCESS = 0,
    JVMPI_NOT_AVAILABLE = 1,
    JVMPI_FAIL = -1,
};

enum {
    JVMPI_EVENT_METHOD_ENTRY = 1,
    JVMPI_EVENT_METHOD_ENTRY2 = 2,
    JVMPI_EVENT_METHOD_EXIT = 3,
    JVMPI_EVENT_OBJECT_ALLOC = 4,
    JVMPI_EVENT_OBJECT_FREE = 5,
    JVMPI_EVENT_OBJECT_MOVE = 6,
    JVMPI_EVENT_COMPILED_METHOD_LOAD = 7,
    JVMPI_EVENT_COMPILED_METHOD_UNLOAD = 8,
    JVMPI_EVENT_INSTRUCTION_START = 9,
    JVMPI_EVENT_THREAD_START = 33,
    JVMPI_EVENT_THREAD_END = 34,
    JVMPI_EVENT_CLASS_LOAD_HOOK = 35,
    JVMPI_EVENT_HEAP_DUMP = 37,
    JVMPI_EVENT_JNI_GLOBALREF_ALLOC = 38,
    JVMPI_EVENT_JNI_GLOBALREF_FREE = 39,
    JVMPI_EVENT_JNI_WEAK_GLOBALREF_ALLOC = 40,
    JVMPI_EVENT_JNI_WEAK_GLOBALREF_FREE = 41,
    JVMPI_EVENT_CLASS_LOAD = 42,
    JVMPI_EVENT_CLASS_UNLOAD = 43,
    JVMPI_EVENT_DATA_DUMP_REQUEST = 44,
    JVMPI_EVENT_DATA_RESET_REQUEST = 45,
    JVMPI_EVENT_JVM_INIT_DONE = 46,
    JVMPI_EVENT_JVM_SHUT_DOWN = 47,
    JVMPI_EVENT_ARENA_NEW = 48,
    JVMPI_EVENT_ARENA_DELETE = 49,
    JVMPI_EVENT_OBJECT_DUMP = 50,
    JVMPI_EVENT_RAW_MONITOR_CONTENDED_ENTER = 51,
    JVMPI_EVENT_RAW_MONITOR_CONTENDED_ENTERED = 52,
    JVMPI_EVENT_RAW_MONITOR_CONTENDED_EXIT = 53,
    JVMPI_EVENT_MONITOR_CONTENDED_ENTER = 54,
    JVMPI_EVENT_MONITOR_CONTENDED_ENTERED = 55,
    JVMPI_EVENT_MONITOR_CONTENDED_EXIT = 56,
    JVMPI_EVENT_MONITOR_WAIT = 57,
    JVMPI_EVENT_MONITOR_WAITED = 58,
    JVMPI_EVENT_MONITOR_DUMP = 59,
    JVMPI_EVENT_GC_START = 60,
    JVMPI_EVENT_GC_FINISH = 61,
    JVMPI_MAX_EVENT_TYPE_VAL = 61,
    JVMPI_REQUESTED_EVENT = 0x10000000,  // added to the type of an event that was asked for
};

enum {
    JVMPI_THREAD_RUNNABLE = 1,
    JVMPI_THREAD_MONITOR_WAIT = 2,  // blocked entering a monitor
    JVMPI_THREAD_CONDVAR_WAIT = 3,  // waiting, sleeping or parked
    JVMPI_THREAD_SUSPENDED = 0x8000,
    JVMPI_THREAD_INTERRUPTED = 0x4000,
};

enum {
    JVMPI_MINIMUM_PRIORITY = 1,
    JVMPI_NORMAL_PRIORITY = 5,
    JVMPI_MAXIMUM_PRIORITY = 10,
};

enum {  // type codes of array elements and fields
    JVMPI_NORMAL_OBJECT = 0,
    JVMPI_CLASS = 2,
    JVMPI_BOOLEAN = 4,
    JVMPI_CHAR = 5,
    JVMPI_FLOAT = 6,
    JVMPI_DOUBLE = 7,
    JVMPI_BYTE = 8,
    JVMPI_SHORT = 9,
    JVMPI_INT = 10,
    JVMPI_LONG = 11,
};

enum { JVMPI_MONITOR_JAVA = 1, JVMPI_MONITOR_RAW = 2 };
enum { JVMPI_DUMP_LEVEL_0 = 0, JVMPI_DUMP_LEVEL_1 = 1, JVMPI_DUMP_LEVEL_2 = 2 };

enum {  // tags of a heap dump's records
    JVMPI_GC_ROOT_UNKNOWN = 0xFF,
    JVMPI_GC_ROOT_JNI_GLOBAL = 1,
    JVMPI_GC_ROOT_JNI_LOCAL = 2,
    JVMPI_GC_ROOT_JAVA_FRAME = 3,
    JVMPI_GC_ROOT_NATIVE_STACK = 4,
    JVMPI_GC_ROOT_STICKY_CLASS = 5,
    JVMPI_GC_ROOT_THREAD_BLOCK = 6,
    JVMPI_GC_ROOT_MONITOR_USED = 7,
    JVMPI_GC_ROOT_THREAD_OBJ = 8,
    JVMPI_GC_CLASS_DUMP = 0x20,
    JVMPI_GC_INSTANCE_DUMP = 0x21,
    JVMPI_GC_OBJ_ARRAY_DUMP = 0x22,
    JVMPI_GC_PRIM_ARRAY_DUMP = 0x23,
};

typedef struct {
    jint lineno;  // source line; negative when unknown
    jmethodID method_id;
} JVMPI_CallFrame;

typedef struct {
    JNIEnv* env_id;           // the thread meant
    jint num_frames;          // set by the VM
    JVMPI_CallFrame* frames;  // allocated by the caller, callee first
} JVMPI_CallTrace;

typedef struct {
    char* method_name;
    char* method_signature;
    jint start_lineno;  // -1: unknown
    jint end_lineno;
    jmethodID method_id;
} JVMPI_Method;

typedef struct {
    char* field_name;
    char* field_signature;
} JVMPI_Field;

typedef struct {
    jint offset;
    jint lineno;
} JVMPI_Lineno;

typedef struct {
    jint heap_dump_level;
} JVMPI_HeapDumpArg;

// Event data belong to the VM and die when NotifyEvent returns.
typedef struct {
    jint event_type;
    JNIEnv* env_id;  // the sending thread
    union {
        struct {
            const char* class_name;  // slash form
            char* source_name;
            jint num_interfaces;
            jint num_methods;
            JVMPI_Method* methods;
            jint num_static_fields;
            JVMPI_Field* statics;
            jint num_instance_fields;
            JVMPI_Field* instances;
            jobjectID class_id;
        } class_load;
        struct {
            jobjectID class_id;
        } class_unload;
        struct {
            unsigned char* class_data;
            jint class_data_len;
            unsigned char* new_class_data;
            jint new_class_data_len;
            void* (*malloc_f)(unsigned int);  // for new_class_data; the VM frees it
        } class_load_hook;
        struct {
            jint arena_id;
            jobjectID class_id;
            jint is_array;
            jint size;
            jobjectID obj_id;
        } obj_alloc;
        struct {
            jobjectID obj_id;
        } obj_free;
        struct {
            jint arena_id;
            jobjectID obj_id;
            jint new_arena_id;
            jobjectID new_obj_id;
        } obj_move;
        struct {
            jint arena_id;
            const char* arena_name;
        } new_arena;
        struct {
            jint arena_id;
        } delete_arena;
        struct {
            char* thread_name;
            char* group_name;
            char* parent_name;
            jobjectID thread_id;
            JNIEnv* thread_env_id;
        } thread_start;
        struct {
            int dump_level;
            char* begin;
            char* end;
            jint num_traces;
            JVMPI_CallTrace* traces;
        } heap_dump;
        struct {
            jobjectID obj_id;
            jobject ref_id;
        } jni_globalref_alloc;
        struct {
            jobject ref_id;
        } jni_globalref_free;
        struct {
            jmethodID method_id;
        } method;
        struct {
            jmethodID method_id;
            jobjectID obj_id;
        } method_entry2;
        struct {
            jmethodID method_id;
            void* code_addr;
            jint code_size;
            jint lineno_table_size;
            JVMPI_Lineno* lineno_table;
        } compiled_method_load;
        struct {
            jmethodID method_id;
        } compiled_method_unload;
        struct {
            jmethodID method_id;
            jint offset;
            union {
                struct {
                    jboolean is_true;
                } if_info;
                struct {
                    jint key;
                    jint low;
                    jint hi;
                } tableswitch_info;
                struct {
                    jint chosen_pair_index;
                    jint pairs_total;
                } lookupswitch_info;
            } u;
        } instruction;
        struct {
            char* begin;
            char* end;
            jint num_traces;
            JVMPI_CallTrace* traces;
            jint* threads_status;
        } monitor_dump;
        struct {
            const char* name;
            JVMPI_RawMonitor id;
        } raw_monitor;
        struct {
            jobjectID object;
        } monitor;
        struct {
            jobjectID object;
            jlong timeout;
        } monitor_wait;
        struct {
            jlong used_objects;
            jlong used_object_space;   // bytes
            jlong total_object_space;  // bytes
        } gc_info;
        struct {
            jint data_len;
            char* data;
        } object_dump;
    } u;
} JVMPI_Event;

// One agent per VM: every GetEnv with a JVMPI version answers with the same pointer.
typedef struct {
    jint version;
    void (*NotifyEvent)(JVMPI_Event* event);  // null until the agent sets it
    jint (*EnableEvent)(jint event_type, void* arg);
    jint (*DisableEvent)(jint event_type, void* arg);
    jint (*RequestEvent)(jint event_type, void* arg);
    void (*GetCallTrace)(JVMPI_CallTrace* trace, jint depth);
    void (*ProfilerExit)(jint err_code);
    JVMPI_RawMonitor (*RawMonitorCreate)(char* lock_name);
    void (*RawMonitorEnter)(JVMPI_RawMonitor lock_id);
    void (*RawMonitorExit)(JVMPI_RawMonitor lock_id);
    void (*RawMonitorWait)(JVMPI_RawMonitor lock_id, jlong ms);  // 0: without limit
    void (*RawMonitorNotifyAll)(JVMPI_RawMonitor lock_id);
    void (*RawMonitorDestroy)(JVMPI_RawMonitor lock_id);
    jlong (*GetCurrentThreadCpuTime)(void);  // ns
    void (*SuspendThread)(JNIEnv* env);
    void (*ResumeThread)(JNIEnv* env);
    jint (*GetThreadStatus)(JNIEnv* env);
    jboolean (*ThreadHasRun)(JNIEnv* env);
    jint (*CreateSystemThread)(char* name, jint priority, void (*f)(void*));
    void (*SetThreadLocalStorage)(JNIEnv* env_id, void* ptr);
    void* (*GetThreadLocalStorage)(JNIEnv* env_id);
    void (*DisableGC)(void);
    void (*EnableGC)(void);
    void (*RunGC)(void);
    jobjectID (*GetThreadObject)(JNIEnv* env);
    jobjectID (*GetMethodClass)(jmethodID mid);
    jobject (*jobjectID2jobject)(jobjectID jid);                                // 1_1
    jobjectID (*jobject2jobjectID)(jobject jobj);                               // 1_1
    void (*SuspendThreadList)(jint reqCount, JNIEnv** reqList, jint* results);  // 1_2
    void (*ResumeThreadList)(jint reqCount, JNIEnv** reqList, jint* results);   // 1_2
} JVMPI_Interface;

}  // extern "C"

static_assert(sizeof(JVMPI_Interface) == 240 && offsetof(JVMPI_Interface, NotifyEvent) == 8 &&
              offsetof(JVMPI_Interface, RawMonitorCreate) == 56 &&
              offsetof(JVMPI_Interface, GetMethodClass) == 200 &&
              offsetof(JVMPI_Interface, ResumeThreadList) == 232);
static_assert(sizeof(JVMPI_Event) == 88 && alignof(JVMPI_Event) == 8 &&
              offsetof(JVMPI_Event, u) == 16);
static_assert(offsetof(JVMPI_Event, u.class_load.class_id) == 80 &&
              offsetof(JVMPI_Event, u.class_load_hook.malloc_f) == 48 &&
              offsetof(JVMPI_Event, u.thread_start.thread_env_id) == 48 &&
              offsetof(JVMPI_Event, u.heap_dump.traces) == 48 &&
              offsetof(JVMPI_Event, u.gc_info.total_object_space) == 32);
static_assert(sizeof(JVMPI_CallFrame) == 16 && sizeof(JVMPI_CallTrace) == 24 &&
              sizeof(JVMPI_Method) == 32 && sizeof(JVMPI_Field) == 16 && sizeof(JVMPI_Lineno) == 8);
