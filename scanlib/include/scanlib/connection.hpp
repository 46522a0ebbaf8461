#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "scanlib/scanlib_exception.hpp"

/// Recordings and live streams, from bytes to targets and waveforms.
namespace scanlib {

class override_listener;
struct file_place;

/// What all connections share: a name and the end of the input.
class basic_connection {
  public:
    basic_connection();
    basic_connection(const basic_connection&) = delete;
    basic_connection& operator=(const basic_connection&) = delete;

    /// Starts the transfer. Empty where the constructor opened the resource already.
    virtual void open();
    /// Ends the transfer.
    virtual void close();
    /// Makes a read that waits, and the following ones, fail. May be called from another thread.
    virtual void cancel();
    virtual ~basic_connection();

    /// A read-write connection, which no scheme supports: always throws std::runtime_error.
    [[noreturn]] static basic_connection* create(const std::string& uri);

    /// Name of the stream; "UNNAMED_" and the time in UTC where nothing better is known.
    const std::string& id() const noexcept { return id_; }

  protected:
    std::string id_;
    bool end_of_input_ = false; ///< once set, there is nothing more to read
};

/// Source of a stream's bytes. Made by `create` and held by std::shared_ptr. Read by one thread.
///
/// With an override text each header packet of the stream, and what follows it up to the first
/// measurement, is delivered as the text demands (see rewriter.hpp); the bytes behind it are the
/// stream's own. Without one, and without a log, each costs a test a read.
class basic_rconnection : public virtual basic_connection,
                          public std::enable_shared_from_this<basic_rconnection> {
  public:
    /// A new read connection, owned by the caller. The scheme before the first of ":/?#" chooses
    /// its class; a URI of no known scheme is a file. `continuation` resumes a transfer where the
    /// class can. `pxp` is the text that replaces header packets, empty for none. Throws
    /// std::runtime_error when the resource cannot be opened.
    static basic_rconnection* create(const std::string& uri, const std::string& continuation,
                                     const std::string& pxp);

    /// Bytes delivered so far, or the position last sought.
    virtual std::uint64_t position();
    /// Moves the read position. Throws std::runtime_error where the stream cannot.
    virtual void seek(std::uint64_t position);
    /// A text from which the transfer can be resumed; empty where it cannot.
    virtual std::string continuation();
    /// Asks the stream to end at the next packet boundary. May be called from another thread.
    virtual void stop();
    ~basic_rconnection() override;

    /// Delivers up to `n` bytes, perhaps fewer; 0 at the end. Throws what the source throws; where
    /// a header packet cannot be replaced, what rewriting it throws, and std::runtime_error
    /// ("internal error: parameter replacement 1" or "2" for a result that does not begin with a
    /// header packet, "header replacement: ..." beyond the limits below) or std::bad_weak_ptr for a
    /// connection that no std::shared_ptr holds; std::runtime_error for a log that cannot be
    /// written ("cannot create logfile extension", "cannot write logfile ..."), which is closed
    /// then: no byte of the stream is lost, the next read delivers it.
    std::uint64_t read(char* dst, std::uint64_t n);

    /// Limits of what is held in memory for a replacement: bytes from a header packet to the first
    /// measurement, and headers that follow it before that.
    static constexpr std::uint64_t longest_header_region = std::uint64_t{1} << 25;
    static constexpr std::uint32_t most_headers_in_region = 64;

    /// Reads until `n` bytes are there or the input ends; gcount tells how many. Throws
    /// std::runtime_error once the input has ended.
    basic_rconnection& read_all(char* dst, std::uint64_t n);

    /// Bytes delivered by the last read.
    std::uint64_t gcount() const noexcept { return gcount_; }
    /// Size of the input in bytes where known, else 0.
    std::uint64_t size() const noexcept { return size_; }

    /// Sets the override text for the header packets to come; empty for none.
    void pxp(const std::string& text);
    /// Who hears what the override text does; null for nobody. Must outlive the reading.
    void listen_to_overrides(override_listener* listener) noexcept;

    /// Copies from now on what is read to a file, as read: with an override text the bytes of a
    /// header region twice, before and after. Where a read goes beyond `limit` bytes, the rest of
    /// it is left out, and the next one begins the file PATH_001, and so on. Removes such files of
    /// an earlier log. Bytes of a regular file are copied from there, up to 512 MiB behind the
    /// reading, unless they are flushed; a file that is changed meanwhile is logged as changed, and
    /// one that is cut makes the log fail. Throws std::runtime_error ("cannot create logfile").
    void log(const std::string& path, std::int64_t limit);
    /// Throws std::runtime_error ("cannot write logfile ...").
    void flush_log();
    /// Ends the log, so that the file is whole. Throws as flush_log does.
    void close_log();

  protected:
    explicit basic_rconnection(std::string pxp);

    /// Delivers up to `n` bytes from the source; 0 means none now or ever.
    virtual std::uint64_t more_input(char* dst, std::uint64_t n) = 0;

    /// Tells, in more_input, that what it delivers can be read again in a file: a log takes it from
    /// there.
    void delivered_from(file_place place) noexcept;

    /// Bytes that the next reads deliver before any other input.
    void push_back(const char* data, std::uint64_t n);

    std::uint64_t gcount_ = 0;
    std::uint64_t position_ = 0;
    std::uint64_t size_ = 0;
    std::string pxp_; ///< set it before the first read, later through its setter

  private:
    std::uint64_t take_pushed_back(char* dst, std::uint64_t n);
    std::uint64_t replace_headers(const char* data, std::uint64_t n, std::uint64_t in_region);
    void replace_header();
    void copy_to_log(const char* data, std::uint64_t n);

    struct state;
    std::unique_ptr<state> state_;
};

/// Sink of a stream's bytes. Written by one thread.
class basic_wconnection : public virtual basic_connection {
  public:
    /// A new write connection, owned by the caller; a URI of no known scheme is a file. Throws
    /// std::runtime_error when the resource cannot be opened.
    static basic_wconnection* create(const std::string& uri);

    /// Takes bytes; returns how many it took. Throws std::runtime_error when they cannot be
    /// written.
    virtual std::int64_t write(const char* data, std::int64_t n) = 0;
    virtual void flush();
    ~basic_wconnection() override;

  protected:
    basic_wconnection();
};

} // namespace scanlib
