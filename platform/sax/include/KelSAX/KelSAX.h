// KelSAX, the tag-stream library: trees of named elements with typed values, binary values and
// references between elements, written and read as XML or as a ZIP archive.
#pragma once

#include <KelSAX/ISAXPersistBase.h>
#include <KelSAX/ISAXReader.h>
#include <KelSAX/ISAXWriter.h>
#include <KelSAX/MSAXCompatibilityInfo.h>
#include <KelSAX/MSAXError.h>
#include <KelSAX/SAXContexts.h>
#include <KelSAX/SAXReader.h>
#include <KelSAX/SAXTypes.h>
#include <KelSAX/SAXWriter.h>
