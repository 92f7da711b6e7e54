// KelSDK::Triangles::Data: the mesh model (umbrella header).
#pragma once

#include <KelSDK/Triangles/Data/MDataMask.h>
#include <KelSDK/Triangles/Data/MHistory.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/MStlBaseElementInfo.h>
#include <KelSDK/Triangles/Data/MStlBaseIndexed.h>
#include <KelSDK/Triangles/Data/MStlBlockPool.h>
#include <KelSDK/Triangles/Data/MStlColor.h>
#include <KelSDK/Triangles/Data/MStlCompare.h>
#include <KelSDK/Triangles/Data/MStlCurve.h>
#include <KelSDK/Triangles/Data/MStlDependency.h>
#include <KelSDK/Triangles/Data/MStlFeature.h>
#include <KelSDK/Triangles/Data/MStlHybrid.h>
#include <KelSDK/Triangles/Data/MStlMaterial.h>
#include <KelSDK/Triangles/Data/MStlPoint.h>
#include <KelSDK/Triangles/Data/MStlRegisteredPoints.h>
#include <KelSDK/Triangles/Data/MStlRevisionSystem.h>
#include <KelSDK/Triangles/Data/MStlTexture.h>
#include <KelSDK/Triangles/Data/MStlTriangle.h>
#include <KelSDK/Triangles/Data/SurfaceZones.h>
#include <KelSDK/Triangles/Data/UVMapList.h>
