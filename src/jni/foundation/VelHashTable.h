// A chained hash table of raw pointers or integers, with or without one lock per bucket. The number
// of buckets is fixed at construction: the table never grows or rehashes.
//
// Ownership: the table owns its nodes, never keys or values; nothing is copied.
// Threads: with locking on, any thread; each operation holds one bucket lock at a time. With
// locking off one thread may put while others get: links and values are published with release and
// read with acquire. remove() and clear() then need every other thread kept out, because they free
// nodes. Failure: a null (zero) key is refused with a debug line; a failed allocation throws,
// nothing changed.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

#include "foundation/BlockPool.h"
#include "foundation/Log.h"
#include "foundation/Utils.h"
#include "foundation/VelList.h"
#include "foundation/VelLock.h"
#include "foundation/VeloraBase.h"

// One chain node. Its end clears the fields and frees nothing that they point to.
template <typename K, typename V>
class HashBucket {
public:
    HashBucket(const K& key, const V& val, HashBucket* next) : key_(key), val_(val), next_(next) {}
    ~HashBucket() {
        key_ = K();
        val_.store(V(), std::memory_order_relaxed);
        next_.store(nullptr, std::memory_order_relaxed);
    }
    HashBucket(const HashBucket&) = delete;
    HashBucket& operator=(const HashBucket&) = delete;

    static void* operator new(std::size_t) { return PoolFor<sizeof(HashBucket)>::allocate(); }
    static void operator delete(void* node) noexcept { PoolFor<sizeof(HashBucket)>::release(node); }

    K key_;
    std::atomic<V> val_;
    std::atomic<HashBucket*> next_;
};

template <typename K, typename V>
class VelHashTable : public virtual VeloraBase {
public:
    // size is rounded up to a prime greater than it (10 gives 11). useStrCmp: keys are texts,
    // hashed and compared by content.
    VelHashTable(int size, bool enableLocking, bool useStrCmp)
        : VeloraBase("VelHashTable"),
          size_(Utils::getNextBiggerPrimeNumber(size)),
          array_(std::make_unique<Link[]>(static_cast<std::size_t>(size_) + 1)),
          useStrCmp_(useStrCmp),
          enableLocking_(enableLocking),
          hashLock_(enableLocking ? std::make_unique<VelLock[]>(static_cast<std::size_t>(size_))
                                  : nullptr) {}
    VelHashTable(int size, bool enableLocking) : VelHashTable(size, enableLocking, false) {}
    ~VelHashTable() override { clear(); }
    VelHashTable(const VelHashTable&) = delete;
    VelHashTable& operator=(const VelHashTable&) = delete;

    // Inserts, or replaces the value of an equal key; the key first inserted stays.
    bool put(const K& key, const V& val) {
        VEL_TRACE("put(const K&, const V&)");
        if (key == K()) {
            VEL_DEBUG_MIN("put", "Inserting NULL Key into Hashtable, so ignoring");
            return false;
        }
        const unsigned bucket = hash(key);
        const VelLockGuard hold(lockOf(bucket));
        if (Node* const found = lookup_bucket(key, bucket); found != nullptr) {
            found->val_.store(val, std::memory_order_release);
            return true;
        }
        Link& chain = array_[bucket];
        chain.store(new Node(key, val, chain.load(std::memory_order_relaxed)),
                    std::memory_order_release);
        propSize_.fetch_add(1, std::memory_order_relaxed);
        return true;
    }

    // The value, or 0 when absent: a stored 0 cannot be told from a missing key.
    V get(const K& key) const {
        VEL_TRACE("get(const K&)");
        if (key == K()) {
            VEL_DEBUG_MIN("get", "trying to get with NULL Key, so ignoring");
            return V();
        }
        const unsigned bucket = hash(key);
        const VelLockGuard hold(lockOf(bucket));
        const Node* const found = lookup_bucket(key, bucket);
        return found == nullptr ? V() : found->val_.load(std::memory_order_acquire);
    }

    bool contains(const K& key) const {
        VEL_TRACE("contains(const K&)");
        if (key == K()) {
            VEL_DEBUG_MIN("contains", "checking contains with NULL Key, so ignoring");
            return false;
        }
        const unsigned bucket = hash(key);
        const VelLockGuard hold(lockOf(bucket));
        return lookup_bucket(key, bucket) != nullptr;
    }

    // False when absent. Frees neither key nor value.
    bool remove(const K& key) {
        VEL_TRACE("remove(const K&)");
        if (key == K()) {
            VEL_DEBUG_MIN("remove", "trying to remove with NULL Key, so ignoring");
            return false;
        }
        const unsigned bucket = hash(key);
        const VelLockGuard hold(lockOf(bucket));
        Link* link = &array_[bucket];
        for (Node* node = link->load(std::memory_order_relaxed); node != nullptr;
             link = &node->next_, node = link->load(std::memory_order_relaxed)) {
            if (!velcontainer::same(node->key_, key, useStrCmp_)) continue;
            link->store(node->next_.load(std::memory_order_relaxed), std::memory_order_release);
            delete node;
            propSize_.fetch_sub(1, std::memory_order_relaxed);
            return true;
        }
        return false;
    }

    // Snapshots in bucket order, closed by a null (zero); the caller frees them with delete[].
    // Entries that appear while the snapshot is taken may be missing from it.
    K* getKeys() const {
        return snapshot<K>([](const Node& node) { return node.key_; });
    }
    V* getVals() const {
        return snapshot<V>(
            [](const Node& node) { return node.val_.load(std::memory_order_acquire); });
    }

    // Without a lock: a moment old when other threads change the table.
    long size() const { return propSize_.load(std::memory_order_relaxed); }

    void clear() {
        VEL_TRACE("clear()");
        propSize_.store(0, std::memory_order_relaxed);
        for (unsigned bucket = 0; bucket < buckets(); ++bucket) {
            const VelLockGuard hold(lockOf(bucket));
            Node* node = array_[bucket].exchange(nullptr, std::memory_order_acq_rel);
            while (node != nullptr) {
                Node* const next = node->next_.load(std::memory_order_relaxed);
                delete node;
                node = next;
            }
        }
    }

    // Enters and leaves every lock once, which makes their monitors; the result of the last leave,
    // or 0 when locking is off.
    int preInitLocks() {
        VEL_TRACE("preInitLocks()");
        int result = 0;
        for (unsigned bucket = 0; enableLocking_ && bucket < buckets(); ++bucket) {
            enterLock(bucket);
            result = exitLock(bucket);
        }
        return result;
    }

    // Whether the lock of the key's bucket could be made; true when locking is off.
    bool makeLockFor(const K& key) {
        return key == K() || !enableLocking_ || hashLock_[hash(key)].makeLock();
    }

private:
    using Node = HashBucket<K, V>;
    using Link = std::atomic<Node*>;

    unsigned buckets() const { return static_cast<unsigned>(size_); }
    VelLock* lockOf(unsigned bucket) const { return enableLocking_ ? &hashLock_[bucket] : nullptr; }

    int enterLock(unsigned bucket) { return enableLocking_ && hashLock_[bucket].enterLock(); }
    int exitLock(unsigned bucket) { return enableLocking_ && hashLock_[bucket].exitLock(); }

    // The bucket of a key. Integers go by the pointer rule too: runs of eight share a bucket.
    unsigned hash(const K& key) const {
        if (useStrCmp_) {
            if constexpr (velcontainer::isText<K>) {
                if (key != K()) return hashText(velcontainer::asText(key));
            }
            VEL_DEBUG_MIN("hash", "Using strcmp for NON Char * data");
        }
        std::uint64_t bits = 0;
        if constexpr (std::is_pointer_v<K>)
            bits = reinterpret_cast<std::uintptr_t>(key);
        else
            bits = static_cast<std::uint64_t>(static_cast<std::int64_t>(key));
        return static_cast<unsigned>((bits >> 3) % buckets());
    }

    // The ELF string hash in a 64-bit accumulator. Bytes from 0x80 on are negative and reach its
    // upper half, which the folding of the low half never clears: intended, buckets depend on it.
    unsigned hashText(const char* text) const {
        std::uint64_t h = 0;
        for (; *text != '\0'; ++text) {
            // NOLINTNEXTLINE(bugprone-signed-char-misuse): wanted, see above
            const auto c = static_cast<std::int64_t>(static_cast<signed char>(*text));
            h = (h << 4) + static_cast<std::uint64_t>(c);
            const std::uint64_t g = h & 0xF0000000U;
            if (g != 0) {
                h ^= g >> 24;
                h ^= g;
            }
        }
        return static_cast<unsigned>(h % buckets());
    }

    Node* lookup_bucket(const K& key, unsigned bucket) const {
        if (key == K()) {
            VEL_DEBUG_MIN("lookup_bucket",
                          "Internal error: Trying to lookup for bucket with NULL Key, so ignoring");
            return nullptr;
        }
        Node* node = array_[bucket].load(std::memory_order_acquire);
        while (node != nullptr && !velcontainer::same(node->key_, key, useStrCmp_))
            node = node->next_.load(std::memory_order_acquire);
        return node;
    }

    template <typename T, typename Pick>
    T* snapshot(Pick pick) const {
        VEL_TRACE("snapshot(Pick)");
        // A clear() that overlaps a remove() may leave the count below zero for a while.
        const long count = std::max(0L, size());
        std::unique_ptr<T[]> slots(new T[static_cast<std::size_t>(count) + 1]());
        long filled = 0;
        for (unsigned bucket = 0; bucket < buckets() && filled < count; ++bucket) {
            const VelLockGuard hold(lockOf(bucket));
            for (const Node* node = array_[bucket].load(std::memory_order_acquire);
                 node != nullptr && filled < count;
                 node = node->next_.load(std::memory_order_acquire))
                slots[static_cast<std::size_t>(filled++)] = pick(*node);
        }
        return slots.release();
    }

    const std::int32_t size_;              // buckets, a prime
    std::atomic<long> propSize_{0};        // entries
    const std::unique_ptr<Link[]> array_;  // chain heads; one slot more than is used
    const bool useStrCmp_;
    const bool enableLocking_;
    const std::unique_ptr<VelLock[]> hashLock_;  // [i] guards chain i; null when locking is off
};
