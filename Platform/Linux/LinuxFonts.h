#pragma once

/// The faces that the desktop's font library offers to this process.
namespace LinuxFonts {

/// Loads the library's own configuration without the faces that no notice is set in: slanted, condensed, very
/// light and very heavy ones. Most installed faces are such, and each of them costs the first text some time.
/// A family that has no other faces keeps all of its own. Where the library cannot load its configuration it
/// is left to itself.
///
/// Any thread, once, before anything asks for a font.
void load();

} // namespace LinuxFonts
