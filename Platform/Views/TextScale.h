#pragma once

#include <QFont>

/// How much larger the desktop's text is than ordinary text: 1 up to 11 pt, from there on the desktop's font
/// size against 10 pt, at most 2.5. Needs a QApplication.
double textScale();

/// The width of a notice: its margins and its tile stay, the column of its text grows with the text. In
/// pixels at scale 1.
int cardWidth();

/// The desktop's font in another size and weight. Its family is not set, so that a view takes over the one of
/// the view around it.
/// @param pixels  at scale 1 on a desktop with ordinary text
QFont scaledFont(double pixels, QFont::Weight weight);
