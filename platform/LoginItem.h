#pragma once

#include <QString>

#include <optional>

namespace harkline {

// Whether the companion opens by itself when the user logs in. Called on the main thread; the
// operations are quick local file changes.
class LoginItem
{
public:
    virtual ~LoginItem() = default;

    // On only when registered and active; anything else (missing, disabled by the user) is off.
    virtual bool enabled() const = 0;
    // Each returns none on success, or a reason a person can read.
    virtual std::optional<QString> registerItem() = 0;
    virtual std::optional<QString> unregisterItem() = 0;
};

// An XDG autostart entry in the user's configuration folder: what desktop sessions on Linux read
// at login to start programs.
class XdgAutostartLoginItem final : public LoginItem
{
public:
    static constexpr const char* kFileName = "harkline-menubar.desktop";

    // `executable` is what the entry starts; by default this very program.
    explicit XdgAutostartLoginItem(QString executable = {});

    // $XDG_CONFIG_HOME/autostart/harkline-menubar.desktop, with ~/.config when XDG_CONFIG_HOME is
    // unset, empty or relative (a relative value is invalid and must be ignored). Read anew on
    // every call so that it follows the environment.
    static QString entryPath();

    bool enabled() const override;
    std::optional<QString> registerItem() override;
    std::optional<QString> unregisterItem() override;

    // The entry's text for `executable`, with the path quoted for the Exec key.
    static QByteArray entryText(const QString& executable);

private:
    QString m_executable;
};

} // namespace harkline
