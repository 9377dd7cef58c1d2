#pragma once

#include <QColor>
#include <QDebug>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <ostream>

// How a failed expectation shows values of Qt's.

inline void PrintTo(const QString &text, std::ostream *stream) {
    *stream << '"' << text.toUtf8().toStdString() << '"';
}

template <class Value>
void printDebugForm(const Value &value, std::ostream *stream) {
    QString text;
    QDebug(&text).nospace() << value;
    *stream << text.toUtf8().toStdString();
}

inline void PrintTo(const QByteArray &bytes, std::ostream *stream) {
    printDebugForm(bytes, stream);
}
inline void PrintTo(const QColor &color, std::ostream *stream) {
    printDebugForm(color, stream);
}
inline void PrintTo(const QSize &size, std::ostream *stream) {
    printDebugForm(size, stream);
}
inline void PrintTo(const QVariant &value, std::ostream *stream) {
    printDebugForm(value, stream);
}
