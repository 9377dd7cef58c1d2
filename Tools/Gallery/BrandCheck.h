#pragma once

#include "Tools/Gallery/Findings.h"

#include <QDir>

/// Reads a brand's folder with the agent's own readers and reports what is wrong or doubtful about it.
/// @param contents  the folder `Contents` of the bundle that the brand is made of
void checkBrand(const QDir &folder, const QDir &contents, Findings &findings);
