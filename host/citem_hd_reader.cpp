#include "host/citem_hd_reader.h"

#include "host/gel/gel_reader.h"
#include "host/global_parameters.h"
#include "host/main_ui.h"

namespace {
constexpr qint32 warned = 1;
constexpr qint32 fatal = 3;
} // namespace

CItemHDReader::CItemHDReader(PinOutMetaData* columns, bool) : columns_(columns) {}

CItemHDReader::~CItemHDReader() {
    closeHD();
}

int CItemHDReader::init(GlobalParameters* parameters, const QString& file, int, int buffers, bool,
                        bool skipCorruptedBlocks) {
    closeHD();
    parameters_ = parameters;
    fileName = file;
    status = 0;
    reader_ = std::make_unique<gel::GelReader>();
    const int error = reader_->open(file, buffers > 1, skipCorruptedBlocks);
    if (error != 0) {
        closeHD();
        return error;
    }
    if (columns_ != nullptr)
        *columns_ = reader_->columns();
    row_.setShape(reader_->columns());
    return 0;
}

OneRow* CItemHDReader::readFromHD() {
    currentRow = nullptr;
    const bool stopped = parameters_ != nullptr && parameters_->runStatus != RunStatus::Running;
    if (reader_ == nullptr || stopped)
        return nullptr;
    if (reader_->nextRow(row_.cells))
        currentRow = &row_;
    if (reader_->hasNews())
        report();
    return currentRow;
}

/// What the reader has to say about the file's content.
void CItemHDReader::report() {
    for (const QString& warning : reader_->takeWarnings()) {
        status = std::max(status, warned);
        MainUI::addLog(2, warning);
    }
    if (reader_->problem().isNull() || status == fatal)
        return;
    status = fatal;
    MainUI::addLog(1, reader_->problem());
    if (parameters_ != nullptr)
        parameters_->runStatus.endAs(RunStatus::Failed);
}

void CItemHDReader::closeHD() {
    currentRow = nullptr;
    reader_.reset();
}
