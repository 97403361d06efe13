#pragma once

#include <vornex/Value.h>

#include <cstdint>
#include <vector>

namespace vornex {

/// How a picture of high dynamic range stores light.
enum class HdrTransfer { pq, hlg };

/// Turns rows of full-range red, green, blue values (16 bits each, BT.2020 primaries) into 8-bit sRGB rows:
/// what is as bright as paper or darker looks as it should, brighter light is rolled off instead of cut.
Data toneMapped(const std::vector<std::uint16_t>& pixels, HdrTransfer transfer);

}  // namespace vornex
