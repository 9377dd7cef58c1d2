#pragma once

#include <QLocale>
#include <QString>

/// The faces that the desktop's font library offers to this process.
namespace LinuxFonts {

/// Loads the library's own configuration without the faces that no notice is set in: slanted, condensed, very
/// light and very heavy ones. Most installed faces are such, and each of them costs the first text some time.
/// A family that has no other faces keeps all of its own. Where the library cannot load its configuration it
/// is left to itself.
///
/// Any thread, once, before anything asks for a font.
/// @return whether there is any font
bool load();

/// The family that the font library has for Chinese (simplified or traditional), Japanese, Korean or Urdu.
/// Empty for any other language, and where the library has none. Main thread, after `load()`.
QString familyFor(const QLocale &locale);

} // namespace LinuxFonts
