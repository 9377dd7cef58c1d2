#pragma once

class QWidget;

/// Brings the frames of a view and of everything in it up to date with the texts just set, whether or not the
/// window is on the screen.
void layOutNow(QWidget &view);
