// The class table: one record per class that the VM reports as loaded, with its methods.
//
// A single chain behind one sentinel, newest first, searched only on load, unload and by name. A
// class is built, registered (visible in both tables), and on unload either unregistered at once or
// marked dirty: still linked, but no longer found by id, until a sweep removes a whole batch of
// dirty classes.
//
// Locks, all operating-system mutexes because the tables may be used before the VM interface is
// there:
//   class_list_lock         the chain: insertion, removal, look-ups, the sweep
//   jclass_t::unLoadLock_   unload bookkeeping; the sweep takes class_list_lock inside it
//   ClassSequenceLock       ClassSequenceID
// class_list_lock is taken before a stripe lock of the method table, never after.
#pragma once

#include <atomic>

#include "foundation/VelOsLock.h"
#include "instrument/method.h"
#include "instrument/types.h"
#include "jvmpi/jvmpi.h"

class jclass_t {
public:
    jclass_t() = default;
    // Copies name and methods of a class-load event; null leaves the record empty.
    explicit jclass_t(const JVMPI_Event* event);
    ~jclass_t();  // unregisters first when still registered
    jclass_t(const jclass_t&) = delete;
    jclass_t& operator=(const jclass_t&) = delete;

    void doRegister();         // methods first, then the class, so that a found class is complete
    void unRegisterMethods();  // the class stays in the class table
    void unregister();
    void addToClassTable();
    void removeFromClassTable();

    // A new, unregistered record with delete_flag 1, for the event that reports the unload. The
    // caller (in the end the ClassEvent) owns it.
    jclass_t* clone() const;
    // Clears every method id, then the class id; the record stays linked in both tables. The record
    // is gone for the caller: a sweep may free it from then on.
    void markDirty();

    // Counts one unload and, when the count reaches CLASSULOAD_CLEANUP, waits
    // methodHashWaitInterval ms and removes every class that was dirty when the wait began. The
    // wait holds only unLoadLock_: classes go on being loaded, looked up and marked.
    static void cleanupDirtyClasses();
    // Takes an unregistered record and deletes it after methodHashWaitInterval ms, at a later
    // retire or table deletion: an unlocked reader may just have found one of its methods.
    static void retire(jclass_t* unregistered);

    static void initialize();  // makes unLoadLock_
    static void destroy();

    // class_id and is_filtered are atomics because markDirty() and reapplyFilter() change them
    // while other threads read; every other field is final once the record is registered.
    std::atomic<jobjectID> class_id{
        nullptr};                     // null: sentinel, or unloaded and waiting for the sweep
    char* class_name = nullptr;       // owned; slash form
    ULONG sequenceID = 0;             // load order, from 1
    UCHAR delete_flag = 0;            // 1: describes an unload
    std::atomic<int> is_filtered{0};  // ClassFilter
    int type = 0;                     // -1: from a class-load event; 0: declared by Java
    int num_methods = 0;
    jmethod_t* methods = nullptr;  // owned array of num_methods, in the VM's order
    jclass_t* next = nullptr;      // guarded by class_list_lock
    bool registered = false;
    bool condemned = false;  // goes with the sweep that now waits; guarded by class_list_lock

    static std::atomic<VelOsLock*> unLoadLock_;
    static std::atomic<bool> isCleanupInProgress_;

    // Allocates `methods` for count entries (negative: none) and sets num_methods.
    void allocateMethods(int count);
};

extern std::atomic<jclass_t**>
    class_hash;  // one bucket head, a sentinel; null until createClassTable
extern std::atomic<VelOsLock*> class_list_lock;
extern std::atomic<VelOsLock*> ClassSequenceLock;
extern ULONG ClassSequenceID;              // last number handed out; guarded by ClassSequenceLock
extern std::atomic<ULONG> cleanupCounter;  // unloads since the last sweep
extern std::atomic<char> nameSeparator;    // '\0' until the first name

// The pointers themselves are atomics: they are set by the thread that starts the custom service
// and read by threads that nothing orders after it.
void initClassTableLock();  // class_list_lock and jclass_t::unLoadLock_; safe to call again
void endClassTableLock();
void initClassSequenceLock();
void endClassSequenceLock();

void createClassTable();
void deleteClassTable();  // teardown only: takes no lock, frees every class

// Both look-ups compare the node they stand on and stop at the last one without comparing it: the
// oldest class of the table is never found. Intended: the behaviour that the rest of the system was
// tuned with. For the same reason a null id finds the sentinel as soon as one class is registered.
jclass_t* getClassForName(const char* class_name);
jclass_t* getClassEntry(jobjectID ClassID);

// Whether a class-load event tells the tables nothing new: its class is registered and not dirty,
// and its methods are known. (A redefined class may have got methods.)
bool isKnownClass(const JVMPI_Event* event);

// Recomputes is_filtered of every class after the include and exclude lists have changed.
void reapplyFilter();

void resetClassSequence();
ULONG getNextClassSequence();  // the first is 1
ULONG getCurrentClassSequence();

// Replaces '.' by '/' in place, if the very first name ever passed contained a '.'. Decided once
// for the process: a VM uses one separator for all names.
void translateSeparator(char* name);
