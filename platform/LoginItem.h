#pragma once

#include <QString>
#include <QStringList>

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

    // Folders on the PATH of every login session, whatever the user's shell adds.
    static QStringList systemBinDirs();

    // $XDG_CONFIG_HOME/autostart/harkline-menubar.desktop, with ~/.config when XDG_CONFIG_HOME is
    // unset, empty or relative (a relative value is invalid and must be ignored). Read anew on
    // every call so that it follows the environment.
    static QString entryPath();

    bool enabled() const override;
    std::optional<QString> registerItem() override;
    std::optional<QString> unregisterItem() override;

    // An entry whose program no longer exists (the package was removed, the build folder
    // deleted) is rewritten to start `executable`, so the user's choice to open at login
    // survives and the session never tries to start nothing; removed when it cannot be written.
    // A missing or hidden entry, or one whose program exists, is left alone. True when changed.
    bool repair();

    // What the entry starts for `executable`: its bare name when that name finds this very file
    // in `searchDirs`, so the entry survives the package moving the program; else the absolute
    // path (a build folder, /opt, a folder only the user's shell has on PATH).
    static QString execProgram(const QString& executable,
                               const QStringList& searchDirs = systemBinDirs());

    // The program the entry at entryPath() starts (TryExec, else the first word of Exec), or
    // empty when there is no entry.
    static QString entryProgram();

    // The entry's text for `program`, quoted for the Exec key.
    static QByteArray entryText(const QString& program);

private:
    QString executable() const;

    QString m_executable;
};

} // namespace harkline
