// Where the records of one packet end, so that of a packet that was cut by a broken connection only
// those records count as lost that lie behind the last byte that arrived.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

class RecordEnds {
public:
    // The next record: it ends that many bytes behind the packet's start and accounts for so many
    // captured events (LossBook.h). Ends rise.
    void add(std::size_t end, long events) noexcept {
        try {
            if (events == 1)
                single_.push_back(static_cast<std::uint32_t>(end));
            else if (events > 1)
                several_.emplace_back(end, events);
        } catch (const std::bad_alloc&) {  // as if these records ended where the last of them does
            unplaced_ += events;
            unplacedEnd_ = end;
        }
    }

    // Captured events of the records that do not lie wholly within the packet's first bytes.
    long behind(std::uint64_t bytes) const {
        long events = single_.end() - std::upper_bound(single_.begin(), single_.end(), bytes);
        for (const auto& [end, count] : several_)
            if (end > bytes) events += count;
        if (unplacedEnd_ > bytes) events += unplaced_;
        return events;
    }
    long events() const { return behind(0); }

    void reserve(std::size_t records) noexcept {
        try {
            single_.reserve(records);
        } catch (const std::bad_alloc&) {
            // Then it grows, or does without.
        }
    }
    std::size_t size() const { return single_.size(); }

private:
    std::vector<std::uint32_t> single_;  // of records for one event, which nearly all are
    std::vector<std::pair<std::size_t, long>> several_;  // drop records
    long unplaced_ = 0;
    std::size_t unplacedEnd_ = 0;
};
