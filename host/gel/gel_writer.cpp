#include "host/gel/gel_writer.h"

#include "host/gel/checksum.h"
#include "host/gel/column_section.h"
#include "host/gel/compression_queue.h"

namespace gel {

GelWriter::GelWriter(int workers, quint32 blockRows) : workers_(workers), blockRows_(blockRows) {}

GelWriter::~GelWriter() = default;

const char* GelWriter::bytes() const {
    return reinterpret_cast<const char*>(bytes_.data());
}

QString GelWriter::start(const PinOutMetaData& columns) {
    GrowingBytes section;
    const QString problem = putColumns(columns, &section);
    if (!problem.isNull())
        return problem;
    bytes_.append(magic, sizeof magic);
    bytes_.put(version);
    bytes_.put(static_cast<quint32>(section.size()));
    bytes_.append(section.data(), section.size());
    headerChecksum_ = checksum(bytes_.data(), bytes_.size());
    bytes_.put(headerChecksum_);
    written_ = bytes_.size();
    queue_ = std::make_unique<CompressionQueue>(columns.types, workers_, blockRows_);
    return {};
}

QString GelWriter::add(const uchar* const* cells) {
    BlockCells& block = queue_->filling();
    if (!block.add(cells))
        return QStringLiteral("row %1 takes more than %2 MiB, which is the most that a row of a "
                              "gel file may take")
            .arg(rows_ + block.rows() + 1)
            .arg(mostRowBytes >> 20);
    if (block.isFull()) {
        rows_ += block.rows();
        takeBlocks(queue_->room() - 1);
        queue_->submit();
    }
    return {};
}

/// Takes finished blocks until at most so many are left.
void GelWriter::takeBlocks(size_t mostPending) {
    while (queue_->pending() > mostPending) {
        const CompressionQueue::Block& block = queue_->take();
        bytes_.append(block.stored.data(), block.stored.size());
        written_ += block.stored.size();
        index_.push_back(block.entry);
    }
}

void GelWriter::finish() {
    if (queue_->filling().rows() > 0) {
        rows_ += queue_->filling().rows();
        takeBlocks(queue_->room() - 1);
        queue_->submit();
    }
    takeBlocks(0);
    quint64 sum = headerChecksum_;
    GrowingBytes part;
    for (size_t i = 0; i < index_.size(); ++i) {
        const BlockEntry& entry = index_[i];
        part.put(entry.rows);
        part.put(entry.cellBytes);
        part.put(entry.encodedBytes);
        part.put(entry.storedBytes);
        part.put(entry.checksum);
        if ((i + 1) % indexPart == 0 || i + 1 == index_.size()) {
            sum = checksum(part.data(), part.size(), sum);
            bytes_.append(part.data(), part.size());
            part.clear();
        }
    }
    GrowingBytes footer;
    footer.put(rows_);
    footer.put(static_cast<quint64>(index_.size()));
    footer.put(written_);
    footer.put(checksum(footer.data(), footer.size(), sum));
    footer.append(endMark, sizeof endMark);
    bytes_.append(footer.data(), footer.size());
    queue_.reset();
}

} // namespace gel
