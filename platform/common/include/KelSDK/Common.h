// KelSDK::Common: progress reporting, string conversion, internal units, image bitmaps.
#pragma once

#include <KelSDK/Common/ImageBitmap.h>
#include <KelSDK/Common/InternalUnits.h>
#include <KelSDK/Common/Progress.h>
#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/Common/StringUtilities.h>
