#include "packet_reader.hpp"

#include <system_error>

namespace Riegl {

PacketReader::PacketReader(const std::shared_ptr<scanlib::basic_rconnection>& connection,
                           bool ahead)
    : connection_(connection)
    , decoder_(connection, scanlib::decoder_capacity, scanlib::decoder_headroom, true) {
    decoder_.set_loss_log(&losses_);
    if (!ahead) {
        return;
    }
    try {
        thread_ = std::thread([this] { work(); });
    } catch (const std::system_error&) {
        return; // the caller reads by itself
    }
}

PacketReader::~PacketReader() {
    stop();
}

void PacketReader::stop() noexcept {
    if (thread_.joinable()) {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        room_.notify_one();
        thread_.join();
    }
}

bool PacketReader::read(scanlib::basic_buffer& packet) {
    const std::uint64_t at = decoder_.tell();
    losses_.at(at == 0 ? preamble_bytes : at);
    decoder_.get(packet);
    return !decoder_.packet_truncated();
}

/// The next packet without a thread.
bool PacketReader::read_next(StreamPacket& packet) {
    scanlib::basic_buffer words;
    const bool whole = read(words);
    offset_ = decoder_.tell();
    packet = {words.begin(), words.end(), offset_, connection_->position()};
    return whole;
}

/// Goes to the next batch that has packets. Throws what the reading thread met instead.
void PacketReader::next_batch() {
    do {
        if (taken_ != nullptr && taken_->failure) {
            std::rethrow_exception(taken_->failure);
        }
        std::unique_lock lock(mutex_);
        if (taken_ != nullptr) {
            ++used_;
            // Once for several batches: a thread that sleeps is slow to wake.
            if (filled_ - used_ == batch_count / 2) {
                room_.notify_one();
            }
        }
        packets_.wait(lock, [this] { return filled_ != used_; });
        taken_ = &batches_[used_ % batch_count];
        entry_ = 0;
    } while (taken_->entries.empty());
}

void PacketReader::work() noexcept {
    for (bool more = true; more;) {
        Batch* batch = nullptr;
        {
            std::unique_lock lock(mutex_);
            if (filled_ - used_ == batch_count) {
                room_.wait(lock,
                           [this] { return filled_ - used_ <= batch_count / 2 || stopping_; });
            }
            if (stopping_) {
                return;
            }
            batch = &batches_[filled_ % batch_count];
        }
        try {
            fill(*batch);
        } catch (...) {
            batch->failure = std::current_exception();
        }
        more = !batch->ended && !batch->failure;
        {
            const std::lock_guard lock(mutex_);
            ++filled_;
        }
        packets_.notify_one();
    }
}

void PacketReader::fill(Batch& batch) {
    batch.words.clear();
    batch.words.reserve(batch_words + batch_words / 8); // a packet more than what is full
    batch.entries.clear();
    std::uint64_t before = decoder_.tell();
    scanlib::basic_buffer packet;
    while (batch.words.size() < batch_words && !batch.ended) {
        batch.ended = !read(packet);
        const std::uint64_t behind = decoder_.tell();
        batch.entries.push_back({static_cast<std::uint32_t>(batch.words.size()),
                                 static_cast<std::uint32_t>(packet.size()),
                                 static_cast<std::uint32_t>(behind - before)});
        batch.words.insert(batch.words.end(), packet.begin(), packet.end());
        batch.position = connection_->position();
        before = behind;
    }
}

} // namespace Riegl
