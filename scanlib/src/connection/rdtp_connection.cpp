#include "scanlib/rdtp_connection.hpp"

#include "rdtp_transfer.hpp"

namespace scanlib {

rdtp_rconnection::rdtp_rconnection(const std::string& uri, const std::string& continuation,
                                   const std::string& pxp)
    : rdtp_rconnection(uri, continuation, pxp, make_tcp_link()) {}

rdtp_rconnection::rdtp_rconnection(const std::string& uri, const std::string& continuation,
                                   const std::string& pxp, std::unique_ptr<rdtp_link> link)
    : basic_rconnection(pxp)
    , transfer_(std::make_unique<rdtp_transfer>(uri, continuation, std::move(link))) {}

rdtp_rconnection::~rdtp_rconnection() {
    transfer_->link().close();
}

void rdtp_rconnection::open() {
    transfer_->open();
    id_ = transfer_->id();
}

void rdtp_rconnection::close() {
    transfer_->link().close();
}

std::string rdtp_rconnection::continuation() {
    return transfer_->continuation();
}

bool rdtp_rconnection::end_announced() const noexcept {
    return transfer_->end_announced();
}

void rdtp_rconnection::stop() {
    transfer_->link().stop();
}

void rdtp_rconnection::cancel() {
    transfer_->link().cancel();
}

std::uint64_t rdtp_rconnection::more_input(char* dst, std::uint64_t n) {
    if (n == 0) {
        return 0; // nothing asked for is not the end
    }
    gcount_ = transfer_->read(dst, n);
    // A reply to a request made anew names the stream again.
    id_ = transfer_->id();
    if (gcount_ == 0) {
        end_of_input_ = true;
    }
    position_ += gcount_;
    return gcount_;
}

} // namespace scanlib
