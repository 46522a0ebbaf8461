#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "scanlib/connection.hpp"
#include "scanlib/loss_log.hpp"
#include "scanlib/rxpmarker.hpp"

namespace Riegl {

/// A packet of the stream, valid until the next is asked for.
struct StreamPacket {
    const std::uint32_t* begin = nullptr;
    const std::uint32_t* end = nullptr;
    std::uint64_t behind = 0;   ///< stream bytes up to its end
    std::uint64_t position = 0; ///< of the connection when it was read, or a little later
};

/// Cuts the stream of a connection into packets.
///
/// Reading and framing take a thread of their own where `ahead` is asked for, so that the caller
/// computes meanwhile. That thread is up to 8 MiB ahead, which suits files. A
/// live stream is read by the caller, who then gets each packet as soon as it is there.
class PacketReader {
  public:
    PacketReader(const std::shared_ptr<scanlib::basic_rconnection>& connection, bool ahead);
    PacketReader(const PacketReader&) = delete;
    PacketReader& operator=(const PacketReader&) = delete;
    /// Waits for the reading thread, which ends with the packet at hand.
    ~PacketReader();

    /// The next packet. False once the input has ended while the packet was read: it may be cut.
    /// Throws what the decoder and the connection throw. Not to be called again after either.
    bool next(StreamPacket& packet) {
        if (taken_ == nullptr || entry_ == taken_->entries.size()) [[unlikely]] {
            if (!thread_.joinable()) {
                return read_next(packet);
            }
            next_batch();
        }
        const Entry& e = taken_->entries[entry_++];
        const std::uint32_t* const begin = taken_->words.data() + e.begin;
        offset_ += e.bytes;
        packet = {begin, begin + e.size, offset_, taken_->position};
        return !taken_->ended || entry_ != taken_->entries.size();
    }

    /// Stream bytes ahead of the packet that next() gives.
    std::uint64_t offset() const noexcept { return offset_ == 0 ? preamble_bytes : offset_; }

    /// What was lost in reading. Not before next() has returned false or thrown, or the end of the
    /// reading thread.
    const scanlib::loss_log& losses() const noexcept { return losses_; }

    /// Ends the reading thread. Then only the connection's owner uses it.
    void stop() noexcept;

  private:
    struct Entry {
        std::uint32_t begin; ///< word of the batch
        std::uint32_t size;  ///< words
        std::uint32_t bytes; ///< of the stream
    };
    // What one thread writes for each packet shares no cache line with what the other uses: the
    // processor fetches them in pairs.
    static constexpr std::size_t line_pair = 128;

    /// Packets on their way from thread to thread.
    struct alignas(line_pair) Batch {
        std::vector<std::uint32_t> words;
        std::vector<Entry> entries;
        std::uint64_t position = 0;
        bool ended = false; ///< the last entry is what the end of input left
        std::exception_ptr failure;
    };
    // Together as much as is decoded while the writing thread keeps a processor busy with a
    // fragment.
    static constexpr std::size_t batch_words = std::size_t{128} << 10;
    static constexpr std::size_t batch_count = 16;
    // Ahead of the first packet the preamble is still to be read.
    static constexpr std::uint64_t preamble_bytes = 16;

    bool read(scanlib::basic_buffer& packet);
    void work() noexcept;
    void fill(Batch& batch);
    bool read_next(StreamPacket& packet);
    void next_batch();

    const std::shared_ptr<scanlib::basic_rconnection> connection_;

    // Of the reading thread.
    alignas(line_pair) scanlib::decoder_rxpmarker decoder_;
    scanlib::loss_log losses_;

    // Of the caller.
    alignas(line_pair) std::size_t entry_ = 0;
    const Batch* taken_ = nullptr;
    std::uint64_t offset_ = 0;

    alignas(line_pair) std::mutex mutex_;
    std::condition_variable packets_; ///< for the caller: a batch is filled
    std::condition_variable room_;    ///< for the reading thread: half of the batches are free
    Batch batches_[batch_count];
    std::size_t filled_ = 0; ///< batches filled so far
    std::size_t used_ = 0;   ///< batches done with so far
    bool stopping_ = false;
    std::thread thread_; // last: the others are there when it starts
};

} // namespace Riegl
