/// Words in columns.
#pragma once

#include <QtCore/QStringList>
#include <QtCore/QVector>

/// Lines of cells, each column as wide as its widest cell, indented; the last column is wrapped.
QByteArray alignedLines(const QVector<QStringList>& lines, int indent);
