#pragma once

#include <QImage>

#include <optional>
#include <string_view>
#include <vector>

namespace harkline {

// Pixels per QR module side in the images below.
inline constexpr int kQrModulePixels = 8;

// The modules of the QR code of `payload`'s bytes (error correction level M, 8-bit mode), row by
// row, true for dark; no quiet zone. None when the encoder refuses the payload (empty, or more
// than the largest symbol holds).
struct QrModules
{
    int size = 0; // modules per side
    std::vector<bool> dark;
    bool at(int column, int row) const { return dark[std::size_t(row) * size + column]; }
};
std::optional<QrModules> qrCodeModules(std::string_view payload);

// The same code as an image, dark modules on a light ground, each module 8x8 pixels, with no
// quiet zone: whoever draws it adds the margin. A null image when there are no modules.
QImage qrCodeImage(std::string_view payload);

} // namespace harkline
