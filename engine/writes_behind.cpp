#include "engine/writes_behind.h"

#include <exception>
#include <utility>

namespace velmorra {

WritesBehind::WritesBehind(SideThreads& threads, OutputFile& file)
    : threads_(threads),
      file_(file) {
    threads_.add(*this);
}

WritesBehind::~WritesBehind() {
    threads_.remove(*this);
}

bool WritesBehind::put(QByteArray& block) {
    const auto hasRoom = [&] {
        return put_ == written_ ||
               (put_ - written_ < mostWaiting && bytesWaiting_ + block.size() <= mostBytes);
    };
    threads_.workUntil(*this, [&] { return failedBlock_ != 0 || hasRoom(); });
    bool taken = false;
    threads_.update([&] {
        taken = failedBlock_ == 0;
        if (!taken)
            return;
        Block& free = ring_[put_++ % mostWaiting];
        bytesWaiting_ += block.size();
        free.number = threads_.nextNumber();
        std::swap(free.bytes, block);
    });
    return taken;
}

bool WritesBehind::settle() {
    bool failed = false;
    threads_.workUntil(*this, [&] {
        failed = failedBlock_ != 0;
        return failed || written_ == put_;
    });
    return !failed;
}

quint64 WritesBehind::failedBlock() {
    quint64 number = 0;
    threads_.update([&] { number = failedBlock_; });
    return number;
}

bool WritesBehind::readerGone() {
    bool gone = false;
    threads_.update([&] { gone = readerGone_; });
    return gone;
}

void WritesBehind::doUnit() noexcept {
    const Block& block = oldest();
    try {
        succeeded_ = file_.write(block.bytes.constData(), block.bytes.size());
    } catch (const std::exception&) {
        succeeded_ = false;
    }
}

void WritesBehind::unitDone() {
    Block& block = oldest();
    if (!succeeded_)
        failedBlock_ = block.number;
    readerGone_ = file_.readerGone();
    bytesWaiting_ -= block.bytes.size();
    if (block.bytes.size() > mostBytes)
        block.bytes = {};
    block.bytes.resize(0);
    ++written_;
}

} // namespace velmorra
