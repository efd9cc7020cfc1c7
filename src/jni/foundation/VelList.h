// A singly linked queue of raw pointers (or integers), with or without a lock of its own.
//
// Ownership: the list owns its nodes, never its elements.
// Threads: with locking on every operation may come from any thread; an iteration is bracketed by
// the caller with a VelLockGuard on lock(). With locking off the list belongs to one thread at a
// time. Failure: a null (zero) element is refused; a failed allocation leaves the list as it was
// and throws.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>

#include "foundation/BlockPool.h"
#include "foundation/Log.h"
#include "foundation/VelLock.h"
#include "foundation/VeloraBase.h"

namespace velcontainer {

// Elements and keys as text, for containers built with useStrCmp; only pointers to characters are.
template <typename T>
inline constexpr bool isText =
    std::is_pointer_v<T>&& std::is_integral_v<std::remove_pointer_t<T>> &&
    sizeof(std::conditional_t<std::is_void_v<std::remove_pointer_t<T>>, int,
                              std::remove_pointer_t<T>>) == 1;

template <typename T>
const char* asText(T value) {
    return reinterpret_cast<const char*>(value);
}

// Equal by content when the container is in string mode, else by value.
template <typename T>
bool same(const T& one, const T& other, [[maybe_unused]] bool useStrCmp) {
    if constexpr (isText<T>)
        if (useStrCmp) return std::strcmp(asText(one), asText(other)) == 0;
    return one == other;
}

}  // namespace velcontainer

template <typename T>
class VelListIter;

// One node.
template <typename T>
class VelBucket {
public:
    explicit VelBucket(const T& key) : key_(key) {}
    ~VelBucket() {
        key_ = T();
        next_ = nullptr;
    }
    VelBucket(const VelBucket&) = delete;
    VelBucket& operator=(const VelBucket&) = delete;

    static void* operator new(std::size_t) { return PoolFor<sizeof(VelBucket)>::allocate(); }
    static void operator delete(void* node) noexcept { PoolFor<sizeof(VelBucket)>::release(node); }

    T key_;  // the element
    VelBucket* next_ = nullptr;
};

template <typename T>
class VelList : public virtual VeloraBase {
public:
    VelList(bool enableLocking, bool useStrCmp)
        : VeloraBase("VelList"),
          useStrCmp_(useStrCmp),
          hashLock_(enableLocking ? std::make_unique<VelLock>() : nullptr),
          enableLocking_(enableLocking) {}
    explicit VelList(bool enableLocking) : VelList(enableLocking, false) {}
    ~VelList() override { freeNodes(head_); }  // no lock: nobody else may know a dying list
    VelList(const VelList&) = delete;
    VelList& operator=(const VelList&) = delete;

    bool append(const T& e) {
        VEL_TRACE("append(const T&)");
        if (e == T()) return false;
        auto* const node = new VelBucket<T>(e);
        const VelLockGuard hold(hashLock_.get());
        if (array_ == nullptr)
            head_ = node;
        else
            array_->next_ = node;
        array_ = node;
        grow(1);
        return true;
    }

    // The first element, or null (zero) when the list is empty.
    T pop() {
        VEL_TRACE("pop()");
        VelBucket<T>* node = nullptr;
        {
            const VelLockGuard hold(hashLock_.get());
            if (size() < 1) return T();
            node = head_;
            head_ = node->next_;
            if (head_ == nullptr) array_ = nullptr;
            grow(-1);
        }
        const T element = node->key_;
        delete node;
        return element;
    }

    // Takes the first equal element out; false when there is none.
    bool remove(const T& e) {
        VEL_TRACE("remove(const T&)");
        if (e == T()) return false;
        VelBucket<T>* node = nullptr;
        {
            const VelLockGuard hold(hashLock_.get());
            VelBucket<T>* before = nullptr;
            for (node = head_; node != nullptr; before = node, node = node->next_)
                if (velcontainer::same(node->key_, e, useStrCmp_)) break;
            if (node == nullptr) return false;
            (before == nullptr ? head_ : before->next_) = node->next_;
            if (array_ == node) array_ = before;
            grow(-1);
        }
        delete node;
        return true;
    }

    void clear() {
        VEL_TRACE("clear()");
        const VelLockGuard hold(hashLock_.get());
        VelBucket<T>* const nodes = head_;
        head_ = array_ = nullptr;
        size_.store(0, std::memory_order_relaxed);
        freeNodes(nodes);
    }

    // Without a lock: exact for the one thread that changes the list, a moment old for the others.
    long size() const { return size_.load(std::memory_order_relaxed); }

    // Puts all of other's elements in front of this list's, in their order, and leaves other empty.
    // Lock order: this list, then other.
    void prependAll(VelList<T>* other) {
        VEL_TRACE("prependAll(VelList<T>*)");
        if (other == nullptr || other == this) return;
        const VelLockGuard hold(hashLock_.get());
        const VelLockGuard holdOther(other->hashLock_.get());
        if (other->head_ == nullptr) return;
        other->array_->next_ = head_;
        if (array_ == nullptr) array_ = other->array_;
        head_ = other->head_;
        grow(other->size());
        other->head_ = other->array_ = nullptr;
        other->size_.store(0, std::memory_order_relaxed);
    }

    // Moves up to count elements from the front of this list behind those of other, in their order;
    // how many it moved. For a drain that would otherwise lock for every element.
    // Lock order: this list, then other.
    long moveFirst(long count, VelList<T>* other) {
        if (other == nullptr || other == this || count < 1) return 0;
        const VelLockGuard hold(hashLock_.get());
        if (head_ == nullptr) return 0;
        VelBucket<T>* last = head_;
        long moved = 1;
        for (; moved < count && last->next_ != nullptr; ++moved) last = last->next_;
        const VelLockGuard holdOther(other->hashLock_.get());
        (other->array_ == nullptr ? other->head_ : other->array_->next_) = head_;
        other->array_ = last;
        other->grow(moved);
        head_ = last->next_;
        if (head_ == nullptr) array_ = nullptr;
        last->next_ = nullptr;
        grow(-moved);
        return moved;
    }

    // Moves the elements that pick accepts behind those of other, in their order and in one walk.
    // Lock order: this list, then other.
    template <typename Pick>
    void moveEach(Pick pick, VelList<T>* other) {
        const VelLockGuard hold(hashLock_.get());
        const VelLockGuard holdOther(other->hashLock_.get());
        VelBucket<T>* before = nullptr;
        for (VelBucket<T>* node = head_; node != nullptr;) {
            VelBucket<T>* const next = node->next_;
            if (!pick(node->key_)) {
                before = node;
                node = next;
                continue;
            }
            (before == nullptr ? head_ : before->next_) = next;
            if (array_ == node) array_ = before;
            grow(-1);
            node->next_ = nullptr;
            (other->array_ == nullptr ? other->head_ : other->array_->next_) = node;
            other->array_ = node;
            other->grow(1);
            node = next;
        }
    }

    // A new iterator at the head; the caller deletes it and holds the list's lock while it walks.
    VelListIter<T>* iterator() { return new VelListIter<T>(this); }

    // Enters and leaves the lock once, which makes its monitor; 0 when locking is off.
    int preInitLocks() {
        VEL_TRACE("preInitLocks()");
        enterLock();
        return exitLock();
    }

    // For a VelLockGuard around a walk; null when locking is off. Never entered by hand where what
    // follows may throw: a lock that stays held stops every thread of the host that begins.
    VelLock* lock() const { return hashLock_.get(); }
    int enterLock() { return hashLock_ != nullptr && hashLock_->enterLock(); }
    int exitLock() { return hashLock_ != nullptr && hashLock_->exitLock(); }

private:
    friend class VelListIter<T>;

    // Under the lock, so a load and a store do instead of a locked addition.
    void grow(long by) { size_.store(size() + by, std::memory_order_relaxed); }

    static void freeNodes(VelBucket<T>* node) {
        while (node != nullptr) {
            VelBucket<T>* const next = node->next_;
            delete node;
            node = next;
        }
    }

    std::atomic<long> size_{0};
    VelBucket<T>* array_ = nullptr;  // the tail
    const bool useStrCmp_;
    VelBucket<T>* head_ = nullptr;
    const std::unique_ptr<VelLock> hashLock_;  // guards nodes and size; null when locking is off
    const bool enableLocking_;
};

template <typename T>
class VelListIter {
public:
    explicit VelListIter(VelList<T>* list)
        : list_(list), curr_(list == nullptr ? nullptr : list->head_) {}

    bool hasNext() const { return curr_ != nullptr; }

    // The current element, moving on; null (zero) at the end. The element may be removed from the
    // list after it was returned: the iterator already stands on the next one.
    T next() {
        if (curr_ == nullptr) return T();
        const T element = curr_->key_;
        curr_ = curr_->next_;
        return element;
    }

private:
    VelList<T>* list_;
    VelBucket<T>* curr_;  // the next node to return
    bool started_ = false;
};
