#pragma once

#include "Controllers/NoticeServices.h"
#include "Platform/Storyboard.h"

/// The storyboard "Main": the scenes of the five notices.
/// @param services  outlives the storyboard
Storyboard makeMainStoryboard(const NoticeServices &services);
