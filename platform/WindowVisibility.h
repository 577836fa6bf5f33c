#pragma once

#include <QString>

#include <vector>

namespace harkline {

// What the menu-visibility test needs to know of one top-level window.
struct WindowInfo
{
    bool visible = false;
    QString className;
};

// The window Qt adds for the tray icon itself under XEmbed. It is always visible while the icon
// is, so it must not count as the menu being open.
inline constexpr const char* kTrayIconWindowClass = "QSystemTrayIconSys";
// Its counterpart on macOS, the status-bar item's own window.
inline constexpr const char* kMacStatusBarWindowClass = "NSStatusBarWindow";

// True when any window is visible and is not the tray icon's own: the menu panel, or any other
// window of ours, counts as the user looking at us. Hidden windows are skipped unexamined.
bool anyMenuWindowVisible(const std::vector<WindowInfo>& windows,
                          const QString& trayIconClass = QLatin1String(kTrayIconWindowClass));

} // namespace harkline
