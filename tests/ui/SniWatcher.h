#pragma once

// As much of a desktop's tray watcher as the companion uses: it records items, says a host is on.

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QObject>

namespace harkline::test {

class SniWatcher : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hostRegistered)

public:
    struct Item
    {
        QString service;
        QString path;
    };

    bool hostRegistered() const { return true; }
    const QList<Item>& registered() const { return m_items; }

    bool publish(QDBusConnection bus = QDBusConnection::sessionBus())
    {
        return bus.registerObject(QStringLiteral("/StatusNotifierWatcher"), this,
                                  QDBusConnection::ExportAllContents) &&
               bus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher"));
    }

public slots:
    // An item names its bus name (default path) or a path on the sender's connection.
    void RegisterStatusNotifierItem(const QString& serviceOrPath)
    {
        if (serviceOrPath.startsWith(QLatin1Char('/')))
            m_items << Item{message().service(), serviceOrPath};
        else
            m_items << Item{serviceOrPath, QStringLiteral("/StatusNotifierItem")};
    }

private:
    QList<Item> m_items;
};

} // namespace harkline::test
