#pragma once

#include <QString>

/// The path of the running program's file, links in it resolved; empty when the system does not tell. One
/// file a system, chosen by the build.
QString executablePath();
