#include "QrCode.h"

#include <qrencode.h>

#include <climits>
#include <cstring>
#include <memory>

namespace harkline {

QImage qrCodeImage(std::string_view payload)
{
    if (payload.empty() || payload.size() > static_cast<std::size_t>(INT_MAX))
        return {};
    // Version 0 lets the encoder pick the smallest symbol that holds the bytes at this level.
    std::unique_ptr<QRcode, decltype(&QRcode_free)> code(
        QRcode_encodeData(static_cast<int>(payload.size()),
                          reinterpret_cast<const unsigned char*>(payload.data()), 0, QR_ECLEVEL_M),
        &QRcode_free);
    if (!code || code->width <= 0)
        return {};

    const int modules = code->width;
    const int side = modules * kQrModulePixels;
    QImage image(side, side, QImage::Format_Grayscale8);
    if (image.isNull())
        return {};
    for (int row = 0; row < modules; ++row) {
        for (int y = 0; y < kQrModulePixels; ++y) {
            uchar* line = image.scanLine(row * kQrModulePixels + y);
            for (int column = 0; column < modules; ++column) {
                // Bit 0 of each byte is the module's colour; the other bits describe its role.
                const bool dark = code->data[row * modules + column] & 1;
                std::memset(line + column * kQrModulePixels, dark ? 0x00 : 0xff, kQrModulePixels);
            }
        }
    }
    return image;
}

} // namespace harkline
