/// Collects the messages of the thread for as long as it lives.
#pragma once

#include "host/message.h"

#include <QtCore/QStringList>

class CollectedMessages : private MessageSink {
public:
    CollectedMessages() : context_{this, nullptr}, scope_(&context_) {}
    QStringList texts; ///< with the level in front

private:
    void take(const Message& message) override {
        texts.push_back(QString::number(message.level) + QLatin1Char(' ') + message.text);
    }

    RunContext context_;
    RunContextScope scope_;
};
