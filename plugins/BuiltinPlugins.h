// The plug-ins that every process has.
#pragma once

namespace KelSDK::Triangles::IO
{
// Constructs and registers the built-in plug-ins on the first call (element information,
// "StlTextures", revision information, surface zones, UV maps, in this order); later calls do
// nothing. Thread-safe: concurrent first calls wait for the one that registers.
void EnsureBuiltinPlugins();
} // namespace KelSDK::Triangles::IO
