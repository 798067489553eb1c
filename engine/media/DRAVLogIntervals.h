#pragma once

#include "portable-core/DRAVTime.h"

// How often the engine's hot paths may repeat a diagnostic line.
constexpr DRAVDuration kSlowLogInterval1 = DRAVDuration::OneMinute();
constexpr DRAVDuration kSlowLogInterval2 = DRAVDuration(2 * 60000000LL);
constexpr DRAVDuration kLogIntervalNotEnoughDropData = DRAVDuration::TenSeconds();
constexpr DRAVDuration kLogIntervalDropBuffer = DRAVDuration::TenSeconds();
