#include "engine/file_output_box.h"

#include "engine/run.h"

namespace velmorra {

void FileOutputBox::startCounting(qint64 limit) {
    rows_ = 0;
    const bool limited = runOptions != nullptr && runOptions->rowLimit >= 0;
    rowLimit_ = limited ? runOptions->rowLimit : limit;
}

bool FileOutputBox::openOutput(const QString& file, StopCheck stop) {
    {
        const std::lock_guard<std::mutex> guard(outputLock_);
        output_ = std::make_unique<OutputFile>();
    }
    return output_->open(file, std::move(stop));
}

bool FileOutputBox::commitOutput() {
    if (output_ == nullptr || output_->commit())
        return true;
    fail(output_->error());
    return false;
}

void FileOutputBox::discardOutput() {
    const std::lock_guard<std::mutex> guard(outputLock_);
    if (output_ != nullptr)
        output_->discard();
}

void FileOutputBox::releaseOutput() {
    const std::lock_guard<std::mutex> guard(outputLock_);
    output_.reset();
}

} // namespace velmorra
