#include "dc2ps/StreamDecoder.h"

namespace dc2ps {

namespace {

// What is worth keeping allocated between records that happened to be cut.
constexpr std::size_t kKeptPendingBytes = 64u << 10;

}  // namespace

FeedResult StreamDecoder::feed(Bytes untrusted, RecordSink& sink) {
    using enum FeedResult::Status;
    if (result_.status == error) return result_;
    if (pending_.empty()) {  // the usual case: decode in place and keep only what is cut off
        const std::size_t used = decodeAll(untrusted, sink);
        pending_.assign(untrusted.begin() + static_cast<std::ptrdiff_t>(used), untrusted.end());
    } else {
        pending_.insert(pending_.end(), untrusted.begin(), untrusted.end());
        const std::size_t used = decodeAll(pending_, sink);
        pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(used));
    }
    if (result_.status == error || (pending_.empty() && pending_.capacity() > kKeptPendingBytes))
        pending_ = {};
    if (result_.status == error) return result_;
    result_.status = pending_.empty() && expect_ == Expect::packet ? ok : needMore;
    result_.offset = offset_;
    return result_;
}

std::size_t StreamDecoder::decodeAll(Bytes untrusted, RecordSink& sink) {
    std::size_t used = 0;
    while (used < untrusted.size()) {
        const Decoded answer = decodeNext(untrusted.subspan(used));
        if (answer == Decoded::needMore) break;
        if (answer == Decoded::garbage) {
            const RecordDecoder::Fault& fault = decoder_.fault();
            result_ = {FeedResult::Status::error, offset_ + fault.offset, fault.reason};
            break;
        }
        sink.onRecord(offset_, record_);
        advance();
        used += decoder_.size();
        offset_ += decoder_.size();
    }
    return used;
}

Decoded StreamDecoder::decodeNext(Bytes untrusted) {
    switch (expect_) {
        case Expect::record:
            return decoder_.decode(untrusted, record_);
        case Expect::packet:
            return decoder_.decodeOpening(untrusted, record_);
        case Expect::serverInit:
            return decoder_.decodeServerInit(untrusted, record_);
    }
    return Decoded::needMore;
}

// What may follow the record that was just read.
void StreamDecoder::advance() {
    switch (expect_) {
        case Expect::record:
            if (--recordsLeft_ == 0) expect_ = Expect::packet;
            return;
        case Expect::packet:
            if (const auto* header = std::get_if<PacketHeader>(&record_)) {
                recordsLeft_ = header->recordCount;  // at least 1
                expect_ = Expect::record;
            } else {
                expect_ = Expect::serverInit;
            }
            return;
        case Expect::serverInit:
            expect_ = Expect::packet;
            return;
    }
}

}  // namespace dc2ps
