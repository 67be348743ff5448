// Umbrella header of the framework SDK.
#pragma once

#include "Vantor/AlgorithmType.h"
#include "Vantor/FaceBuffers.h"
#include "Vantor/ImageQuality.h"
#include "Vantor/SceneBuffers.h"
#include "Vantor/SegmentationBuffers.h"
#include "Vantor/VantorAlgorithmInput.h"
#include "Vantor/VantorAlgorithmSystem.h"
#include "Vantor/VantorBuffer.h"
#include "Vantor/VantorErrorCode.h"
#include "Vantor/VantorPlatform.h"
#include "Vantor/VantorResourceFinder.h"
