#pragma once

#include "app/MenuDestination.h"

#include <QHash>
#include <QObject>
#include <QString>

// Which screens' tours are done, one flag per destination under "ob.completed.<menu item>"
// in the user defaults, read once when the object is made. Main thread.
class OnBoardingCompletion : public QObject {
    Q_OBJECT

public:
    static OnBoardingCompletion *shared();
    explicit OnBoardingCompletion(QObject *parent = nullptr);

    // "ob.completed.menuServerConfig"
    static QString keyFor(MenuDestination destination);

    bool isCompleted(MenuDestination destination) const { return m_items.value(destination, false); }
    // Writes one flag and synchronises the defaults.
    void setCompleted(MenuDestination destination, bool completed);
    // Stores the flags of all eight screens as they are in memory.
    void storeAll();
    // Every screen's tour undone, in memory and stored.
    void resetAll();

signals:
    void changed();

private:
    QHash<MenuDestination, bool> m_items;
};
