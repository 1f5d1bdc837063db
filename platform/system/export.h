#pragma once

/// Marks what the platform library shows to the outside; everything else is hidden.
#define PLATFORM_API __attribute__((visibility("default")))
