#pragma once

#include "QrCode.h"

#include <string>

namespace harkline::ctl {

// Light margin around the code, in modules: the four that QR readers expect.
inline constexpr int kQuietZone = 4;

// The code for a terminal: one character per module across and two modules down per line, drawn
// with the Unicode half blocks, so modules come out roughly square. Every line carries explicit
// colours (black on white from the 256-colour palette, which themes leave alone) and ends with a
// reset, so the code reads dark on light in a dark terminal as well, and the colours never leak
// into what follows.
std::string terminalQr(const QrModules& modules);

} // namespace harkline::ctl
