// The detect command's overlay picture: the photograph with the page
// quadrangle drawn on it.
#ifndef SCRIVO_CLI_OVERLAY_H
#define SCRIVO_CLI_OVERLAY_H

#include <cstdint>
#include <string>
#include <vector>

#include "capture.h"

namespace scrivo_cli {

// Decodes the photograph (width x height from its headers), draws the
// quadrangle and writes a JPEG to `path`. False and `error` on failure.
bool WriteOverlay(MHAMCM manager, const std::vector<uint8_t>& jpeg, int32_t width, int32_t height,
                  const Quad& corners, bool found, const std::string& path, std::string& error);

}  // namespace scrivo_cli

#endif
