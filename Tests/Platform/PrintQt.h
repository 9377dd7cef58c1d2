#pragma once

#include "Tests/Fakes/Printing.h"

#include <QDebug>
#include <QSize>
#include <QVariant>

#include <ostream>

// The same for what a property list or a picture gives.

template <class Value>
void printDebugForm(const Value &value, std::ostream *stream) {
    QString text;
    QDebug(&text).nospace() << value;
    *stream << text.toUtf8().toStdString();
}

inline void PrintTo(const QByteArray &bytes, std::ostream *stream) {
    printDebugForm(bytes, stream);
}
inline void PrintTo(const QSize &size, std::ostream *stream) {
    printDebugForm(size, stream);
}
inline void PrintTo(const QVariant &value, std::ostream *stream) {
    printDebugForm(value, stream);
}
