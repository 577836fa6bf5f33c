#include "TerminalQr.h"

namespace harkline::ctl {

std::string terminalQr(const QrModules& modules)
{
    constexpr const char* kColours = "\033[38;5;16;48;5;231m";
    constexpr const char* kReset = "\033[0m";
    const int side = modules.size + 2 * kQuietZone;
    const auto dark = [&](int column, int row) {
        column -= kQuietZone;
        row -= kQuietZone;
        return column >= 0 && row >= 0 && column < modules.size && row < modules.size &&
               modules.at(column, row);
    };
    std::string text;
    // An odd side leaves a last line whose lower half is margin as well.
    for (int row = 0; row < side; row += 2) {
        text += kColours;
        for (int column = 0; column < side; ++column) {
            const bool top = dark(column, row);
            const bool bottom = dark(column, row + 1);
            text += top ? (bottom ? "█" : "▀") : (bottom ? "▄" : " ");
        }
        text += kReset;
        text += '\n';
    }
    return text;
}

} // namespace harkline::ctl
