#include "WindowVisibility.h"

namespace harkline {

bool anyMenuWindowVisible(const std::vector<WindowInfo>& windows, const QString& trayIconClass)
{
    for (const WindowInfo& window : windows)
        if (window.visible && window.className != trayIconClass)
            return true;
    return false;
}

} // namespace harkline
