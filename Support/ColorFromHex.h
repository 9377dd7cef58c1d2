#pragma once

#include <QColor>
#include <QString>

/// The colour of a text such as "#2A292F" (white space around it, the "#" and the letters' case do not
/// matter). A text that has not exactly 6 characters is gray. Of 6 characters as many count as form a
/// hexadecimal number from the start, read as a number: "12ZZZZ" is 0x12, and "GG0000" is 0.
QColor colorFromHex(const QString &text);
