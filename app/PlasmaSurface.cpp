#include "PlasmaSurface.h"

#include <QGuiApplication>
#include <QWindow>
#include <qpa/qplatformnativeinterface.h>

#include "plasma-shell-client-protocol.h"
#include <wayland-client.h>

#include <algorithm>
#include <cstring>

namespace harkline::app::plasma {

namespace {

// The compositor's globals on a queue of our own, so that Qt's event dispatch never sees them.
struct Shell
{
    wl_display* display = nullptr;
    wl_event_queue* queue = nullptr;
    org_kde_plasma_shell* shell = nullptr;
    uint32_t version = 0;

    Shell()
    {
        if (QGuiApplication::platformName() != QLatin1String("wayland"))
            return;
        QPlatformNativeInterface* native = QGuiApplication::platformNativeInterface();
        display = native
                      ? static_cast<wl_display*>(native->nativeResourceForIntegration("wl_display"))
                      : nullptr;
        if (!display)
            return;
        queue = wl_display_create_queue(display);
        // A wrapper, so that the registry's events land on our queue from the start.
        auto* wrapped = static_cast<wl_display*>(wl_proxy_create_wrapper(display));
        wl_proxy_set_queue(reinterpret_cast<wl_proxy*>(wrapped), queue);
        wl_registry* registry = wl_display_get_registry(wrapped);
        wl_proxy_wrapper_destroy(wrapped);
        static const wl_registry_listener listener = {
            [](void* data, wl_registry* registry, uint32_t name, const char* interface,
               uint32_t version) {
                auto* self = static_cast<Shell*>(data);
                if (std::strcmp(interface, org_kde_plasma_shell_interface.name) != 0)
                    return;
                // 6 is what Plasma 5.27 offers; nothing newer is used.
                self->version = std::min<uint32_t>(version, 6);
                self->shell = static_cast<org_kde_plasma_shell*>(wl_registry_bind(
                    registry, name, &org_kde_plasma_shell_interface, self->version));
            },
            [](void*, wl_registry*, uint32_t) {}};
        wl_registry_add_listener(registry, &listener, this);
        wl_display_roundtrip_queue(display, queue);
        wl_registry_destroy(registry);
    }
};

Shell& shell()
{
    static Shell instance;
    return instance;
}

} // namespace

bool available()
{
    return shell().shell != nullptr;
}

void place(QWindow* window, std::optional<QPoint> position)
{
    Shell& s = shell();
    if (!s.shell || !window)
        return;
    auto* surface = static_cast<wl_surface*>(
        QGuiApplication::platformNativeInterface()->nativeResourceForWindow("surface", window));
    if (!surface)
        return;
    // Qt makes a new wl_surface each time the window is shown, so the role object goes with the
    // surface of this showing; the previous one is dropped with it.
    static wl_surface* placedSurface = nullptr;
    static org_kde_plasma_surface* plasmaSurface = nullptr;
    if (surface != placedSurface) {
        if (plasmaSurface)
            org_kde_plasma_surface_destroy(plasmaSurface);
        placedSurface = surface;
        plasmaSurface = org_kde_plasma_shell_get_surface(s.shell, surface);
        wl_proxy_set_queue(reinterpret_cast<wl_proxy*>(plasmaSurface), s.queue);
        if (s.version >= ORG_KDE_PLASMA_SURFACE_SET_SKIP_TASKBAR_SINCE_VERSION)
            org_kde_plasma_surface_set_skip_taskbar(plasmaSurface, 1);
        if (s.version >= ORG_KDE_PLASMA_SURFACE_SET_SKIP_SWITCHER_SINCE_VERSION)
            org_kde_plasma_surface_set_skip_switcher(plasmaSurface, 1);
    }
    if (position)
        org_kde_plasma_surface_set_position(plasmaSurface, position->x(), position->y());
    wl_display_flush(s.display);
}

} // namespace harkline::app::plasma
