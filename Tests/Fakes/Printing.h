#pragma once

#include <QColor>
#include <QString>

#include <ostream>

// How the values of the toolkit read in the output of a test that fails.

inline void PrintTo(const QString &text, std::ostream *stream) {
    *stream << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QColor &color, std::ostream *stream) {
    *stream << color.name(QColor::HexArgb).toStdString();
}
