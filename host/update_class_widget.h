/// The base class of property forms.
#pragma once

#include "host/export.h"

#include <QtWidgets/QWidget>

class VELMORRA_CORE UpdateClassWidget : public QWidget {
    Q_OBJECT

public:
    explicit UpdateClassWidget(QWidget* parent = nullptr);

    /// Brings the Action up to date with what is typed but not yet committed in a field.
    virtual void updateClass() = 0;

    /// Sets the widgets from the Action again.
    virtual void refreshDisplayOfProperties();

Q_SIGNALS:
    /// The Action's settings changed in a way that may alter its output columns or its run.
    void propertiesChanged();
};
