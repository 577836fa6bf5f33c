#pragma once

#include <QLocalServer>
#include <QLockFile>
#include <QObject>

#include <memory>

namespace harkline::app {

// One companion per user session. The first to start holds a lock file and listens on a local
// socket in XDG_RUNTIME_DIR; a later start asks it to open its panel and then leaves.
class SingleInstance : public QObject
{
    Q_OBJECT

public:
    // `directory` defaults to XDG_RUNTIME_DIR (or the temporary folder, with the user id in the
    // names, when that is unset or not absolute).
    explicit SingleInstance(QString directory = {}, QObject* parent = nullptr);
    ~SingleInstance() override;

    enum class Role { Primary, Secondary, Unreachable };
    // Primary: this process is the companion (and listens, unless the socket could not be made).
    // Secondary: another one runs and was asked to open its panel. Unreachable: another one holds
    // the lock but does not answer.
    Role claim();

    QString socketPath() const { return m_socketPath; }

signals:
    // A later start asked us to show ourselves.
    void openRequested();

private:
    bool askRunningToOpen(int timeoutMs);

    QString m_socketPath;
    QString m_lockPath;
    std::unique_ptr<QLockFile> m_lock;
    QLocalServer m_server;
};

} // namespace harkline::app
