#pragma once

#include <QImage>

#include <string_view>

namespace harkline {

// Pixels per QR module side in the images below.
inline constexpr int kQrModulePixels = 8;

// The QR code of `payload`'s bytes (error correction level M, 8-bit mode), dark modules on a light
// ground, each module 8x8 pixels, with no quiet zone: whoever draws it adds the margin. A null
// image when the encoder refuses the payload (empty, or more than the largest symbol holds).
QImage qrCodeImage(std::string_view payload);

} // namespace harkline
