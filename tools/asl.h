// Dynamic attributes: who fetches which of them, registered in the property database.
#pragma once

#include <string>

namespace tool {

/// Loads an array support library, for the rest of the run, and registers it for every disk, with
/// `attribute` as one that it fetches unless discovery stores that itself. Throws Error when the
/// file is no such library.
void register_library(const std::string &file, const std::string &attribute);

/// Registers "DISK_GEOMETRY", which the discovery layer fetches itself, for every disk that has a
/// multipath node.
void register_geometry();

}  // namespace tool
