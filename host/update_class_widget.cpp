#include "host/update_class_widget.h"

UpdateClassWidget::UpdateClassWidget(QWidget* parent) : QWidget(parent) {}

void UpdateClassWidget::refreshDisplayOfProperties() {}
