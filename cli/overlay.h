// The detect command's overlay picture: the photograph with the page
// quadrangle drawn on it.
#ifndef SCRIVO_CLI_OVERLAY_H
#define SCRIVO_CLI_OVERLAY_H

#include <cstdint>
#include <string>

#include "capture.h"

namespace scrivo_cli {

// Draws the quadrangle on the engine's photograph (width x height, as
// viewed) and writes it as a JPEG to `path`. False and `error` on failure.
bool WriteOverlay(MHAMCM manager, QvSession* session, VPHandle engine, int32_t width,
                  int32_t height, const Quad& corners, bool found, const std::string& path,
                  std::string& error);

}  // namespace scrivo_cli

#endif
