// The internal length unit of mesh coordinates: integer steps per millimetre.
#pragma once

#include <KelSDK/Common/Export.h>

namespace KelSDK::Common
{
// Process-wide scale between millimetres and the integer grid of mesh coordinates (10000 by default,
// a 0.1 micrometre grid). Meant to be set once at start-up; reading and setting are thread-safe.
class KELSDK_COMMON_EXPORT MInternalUnits
{
public:
    // The default number of steps per millimetre.
    static constexpr double Default = 10000.0;
    // Steps per millimetre.
    static double Get();
    // Sets the steps per millimetre; values that are not finite and positive are ignored.
    static void Set(double stepsPerMillimetre);
};
} // namespace KelSDK::Common
