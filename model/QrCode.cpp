#include "QrCode.h"

#include <qrencode.h>

#include <climits>
#include <cstring>
#include <memory>

namespace harkline {

std::optional<QrModules> qrCodeModules(std::string_view payload)
{
    if (payload.empty() || payload.size() > static_cast<std::size_t>(INT_MAX))
        return std::nullopt;
    // Version 0 lets the encoder pick the smallest symbol that holds the bytes at this level.
    std::unique_ptr<QRcode, decltype(&QRcode_free)> code(
        QRcode_encodeData(static_cast<int>(payload.size()),
                          reinterpret_cast<const unsigned char*>(payload.data()), 0, QR_ECLEVEL_M),
        &QRcode_free);
    if (!code || code->width <= 0)
        return std::nullopt;
    QrModules modules;
    modules.size = code->width;
    modules.dark.resize(std::size_t(code->width) * code->width);
    // Bit 0 of each byte is the module's colour; the other bits describe its role.
    for (std::size_t i = 0; i < modules.dark.size(); ++i)
        modules.dark[i] = code->data[i] & 1;
    return modules;
}

QImage qrCodeImage(std::string_view payload)
{
    const auto modules = qrCodeModules(payload);
    if (!modules)
        return {};
    const int side = modules->size * kQrModulePixels;
    QImage image(side, side, QImage::Format_Grayscale8);
    if (image.isNull())
        return {};
    for (int row = 0; row < modules->size; ++row) {
        for (int y = 0; y < kQrModulePixels; ++y) {
            uchar* line = image.scanLine(row * kQrModulePixels + y);
            for (int column = 0; column < modules->size; ++column)
                std::memset(line + column * kQrModulePixels, modules->at(column, row) ? 0x00 : 0xff,
                            kQrModulePixels);
        }
    }
    return image;
}

} // namespace harkline
