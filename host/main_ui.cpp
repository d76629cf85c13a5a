#include "host/main_ui.h"

#include "host/action_item.h"

namespace {
MainUI* theMainUI = nullptr;
thread_local RunContext* currentContext = nullptr;
} // namespace

RunContextScope::RunContextScope(RunContext* context) : outer_(currentContext) {
    currentContext = context;
}

RunContextScope::~RunContextScope() {
    currentContext = outer_;
}

RunContext* RunContextScope::current() {
    return currentContext;
}

MainUI::MainUI() {
    theMainUI = this;
}

MainUI::~MainUI() {
    if (theMainUI == this)
        theMainUI = nullptr;
}

MainUI* MainUI::get() {
    return theMainUI;
}

void MainUI::addLog(int level, const QString& text) {
    Message message{level, text, {}, {}};
    const RunContext* const context = currentContext;
    if (context != nullptr && context->box != nullptr) {
        message.boxId = context->box->boxId;
        message.boxName = QString::fromUtf8(context->box->actionName());
    }
    if (context != nullptr && context->sink != nullptr)
        context->sink->take(message);
    else if (theMainUI != nullptr)
        theMainUI->takeLog(message);
}

void openHelp(const char* key, const QString& anchor) {
    if (MainUI* const ui = MainUI::get())
        ui->showHelp(QString::fromUtf8(key), anchor);
}
