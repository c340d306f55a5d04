#pragma once

#include "store/StoreContext.h"

#include <QObject>
#include <QString>
#include <optional>

// Owns the store: one SQLite file, and the one main-thread context `viewContext` through
// which all code reads and writes. A store that cannot be opened leaves the application
// running: the context then fails every fetch and save with the reason.
class PersistenceController : public QObject {
    Q_OBJECT

public:
    static inline const QString modelName = QStringLiteral("Kelvara");
    // Stored as the file's user_version; each later version adds one migration step.
    static constexpr int schemaVersion = 4;

    // Opens (creating or migrating as needed) the store file at storePath.
    explicit PersistenceController(const QString &storePath, QObject *parent = nullptr);
    ~PersistenceController() override;

    StoreContext *viewContext() const { return m_viewContext; }
    QString storePath() const { return m_storePath; }
    // Why the store could not be opened, if it could not.
    std::optional<QString> loadError() const { return m_loadError; }
    // The process whose lock kept the store from opening (0 when it did not write its
    // number), or nothing when the store was not refused for that.
    std::optional<qint64> lockHolder() const { return m_lockHolder; }

private:
    // Takes the store's lock; the reason when another process holds it.
    std::optional<QString> lock();
    std::optional<QString> open();

    QString m_storePath;
    QString m_connectionName;
    std::optional<QString> m_loadError;
    int m_lockFd = -1;  // holds the store's lock for the object's life
    std::optional<qint64> m_lockHolder;
    StoreContext *m_viewContext = nullptr;
};
