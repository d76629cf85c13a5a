/// The program around a run, as Actions see it.
#pragma once

#include "host/message.h"

class QWidget;

/// One instance per program, supplied by the program: the desktop's main window, or the windowless
/// one of a command line.
class VELMORRA_CORE MainUI {
public:
    MainUI();
    virtual ~MainUI();
    MainUI(const MainUI&) = delete;
    MainUI& operator=(const MainUI&) = delete;

    /// The program's instance; null when the library is used without one.
    static MainUI* get();

    /// Reports a message at a level (see Message). It goes to the run, and names the box, of the
    /// current thread; outside a run it goes to the program.
    static void addLog(int level, const QString& text);

    /// The main window; null when there is none. Owned by the program.
    virtual QWidget* window() = 0;

    /// Shows a page of the help; an empty key shows the start page.
    virtual void showHelp(const QString& key, const QString& anchor) = 0;

    /// Takes a message from outside a run.
    virtual void takeLog(const Message& message) = 0;
};

/// The program without a window: messages go to a sink, help is not shown.
class VELMORRA_CORE WindowlessMainUI : public MainUI {
public:
    /// `sink` must outlive this object.
    explicit WindowlessMainUI(MessageSink& sink) : sink_(sink) {}

    QWidget* window() override { return nullptr; }
    void showHelp(const QString&, const QString&) override {}
    void takeLog(const Message& message) override { sink_.take(message); }

private:
    MessageSink& sink_;
};

/// Shows a page of the help in the program that runs; does nothing when there is none.
VELMORRA_CORE void openHelp(const char* key, const QString& anchor);
