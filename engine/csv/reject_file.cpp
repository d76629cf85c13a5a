#include "engine/csv/reject_file.h"

namespace velmorra {

namespace {
constexpr qsizetype flushBytes = 64 << 10;
}

void RejectFile::start(TextEncoding encoding, bool mark) {
    encoding_ = encoding;
    if (mark)
        encodeText(encoding, "\xEF\xBB\xBF", 3, &waiting_);
}

void RejectFile::begin(const QString& problem) {
    if (rows_++ == 0)
        firstProblem_ = problem;
}

bool RejectFile::take(const uchar* bytes, qsizetype size) {
    encodeText(encoding_, reinterpret_cast<const char*>(bytes), size, &waiting_);
    return waiting_.size() < flushBytes || flush();
}

bool RejectFile::flush() {
    const bool written = file_.write(waiting_.constData(), waiting_.size());
    waiting_.clear();
    return written;
}

bool RejectFile::finish() {
    // A mark alone is nobody's row.
    if (rows_ == 0)
        waiting_.clear();
    return flush() && file_.finish();
}

} // namespace velmorra
