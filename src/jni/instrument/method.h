// The method table: turns a bare method id, as method events and unload records carry it, back into
// class name, method name and signature.
//
// A fixed array of method_hash_size buckets hashed by the id's address bits; each bucket is a
// sentinel whose `next` starts the chain. Bucket b is written under stripe lock b mod 67. Readers
// walk without a lock, because an id is resolved on every traced method event; they take the stripe
// lock only while useMethodLocks is set (by property, or by a running sweep of unloaded classes).
// That is why the links and ids are atomics: a reader sees either the old or the new link, never
// half of one.
//
// What keeps an unlocked reader off freed memory: a method leaves a chain only when its class has
// been swept (at least methodHashWaitInterval ms after it was marked dirty) or retired
// (jclass_t::retire keeps the memory that long). A reader that sleeps longer than that between
// getMethod() and its last use of the record is the one that could still meet freed memory; callers
// copy what they need at once.
#pragma once

#include <jni.h>

#include <atomic>

#include "instrument/types.h"

class jclass_t;

class jmethod_t {
public:
    jmethod_t() = default;
    jmethod_t(const char* name, const char* signature, jmethodID id, jclass_t* clazz);
    ~jmethod_t();
    jmethod_t(const jmethod_t&) = delete;
    jmethod_t& operator=(const jmethod_t&) = delete;

    // Fills a default-constructed record; both texts are copied.
    void initialize(const char* name, const char* signature, jmethodID id, jclass_t* clazz);
    // A new record with the same name, signature and id, and no class. The caller owns it.
    jmethod_t* clone() const;

    // Pushes the method at the front of its bucket's chain. Nothing while the table does not exist.
    void addToMethodTable();
    // Unlinks the first entry of the bucket of the *current* id that has this id, and clears this
    // method's id. A method whose id has already been cleared therefore looks in bucket 0.
    void removeFromMethodTable();

    char* method_name = nullptr;                // owned
    char* method_signature = nullptr;           // owned; JVM descriptor
    std::atomic<jmethodID> method_id{nullptr};  // null: sentinel, or its class is unloaded
    jclass_t* clazz = nullptr;                  // borrowed: the owning class
    std::atomic<jmethod_t*> next{nullptr};      // chain of the method table
    int type = -1;                              // 0: declared by the method-level module

private:
    friend void deleteMethodTable();
    static void unlinkLocked(jmethod_t* before, jmethod_t* method);  // caller holds the stripe lock
    void unlink();

    // Where the record is linked, whatever its id says by now. A record that dies while linked
    // takes itself out, so that no chain ever leads into freed memory.
    std::atomic<bool> linked_{false};
    ULONG bucket_ = 0;  // valid while linked_
};

constexpr int kMethodMonitors = 67;
constexpr ULONG kDefaultMethodHashSize = 55511;

extern std::atomic<jmethod_t**> method_hash;  // null until createMethodTable
extern ULONG method_hash_size;                // buckets; fixed once the table exists

// Made by ProbeMgr::csInitialize before the table is used; safe to call again.
void initMethodTableLock();
void createMethodTable();
// For teardown while nobody reads; the collector itself keeps its tables until the process ends.
void deleteMethodTable();

ULONG getMethHashIndex(jmethodID id);
// Null for a null or unknown id, and while there is no table. The record stays valid as described
// above.
jmethod_t* getMethod(jmethodID id);
