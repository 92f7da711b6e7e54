// KelSDK::Math: points, bounding boxes and transformations.
#pragma once

#include <KelSDK/Math/BoundingBox.h>
#include <KelSDK/Math/Point.h>
#include <KelSDK/Math/Transform.h>
