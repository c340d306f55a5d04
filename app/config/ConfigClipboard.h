#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

// The process-wide clipboard of configuration snapshots. It lives inside the process and
// is empty at each start. Each type identifier holds at most one snapshot, the later
// replacing the earlier; snapshots of other kinds stay, so a copied tool and a copied
// input schema are both there at once. Main thread only.
class ConfigClipboard : public QObject {
    Q_OBJECT

public:
    static inline const QString toolsConfigType = QStringLiteral("kelvara.pb.toolsconfig");
    static inline const QString toolInputSchemaType = QStringLiteral("kelvara.pb.toolinputschema");
    static inline const QString toolOutputSchemaType = QStringLiteral("kelvara.pb.tooloutputschema");
    static inline const QString resourceConfigType = QStringLiteral("kelvara.pb.resourceconfig");
    static inline const QString promptConfigType = QStringLiteral("kelvara.pb.promptconfig");
    static inline const QString promptArgumentType = QStringLiteral("kelvara.pb.promptargument");
    static QStringList typeIdentifiers();

    static ConfigClipboard *shared();
    explicit ConfigClipboard(QObject *parent = nullptr);

    // Encodes the snapshot as JSON and keeps it under the identifier. A snapshot that does
    // not survive encoding (a non-finite number, say) is refused with false.
    template <class Snapshot>
    bool store(const Snapshot &snapshot, const QString &typeIdentifier)
    {
        const QByteArray data = QJsonDocument(snapshot.toJson()).toJson(QJsonDocument::Compact);
        if (!decode<Snapshot>(data))
            return false;
        storeData(data, typeIdentifier);
        return true;
    }

    // Always answers later, on the main thread: the snapshot under the identifier, or
    // nothing when there is none or it does not decode as Snapshot.
    template <class Snapshot>
    void load(const QString &typeIdentifier, std::function<void(std::optional<Snapshot>)> completion)
    {
        loadData(typeIdentifier, [completion = std::move(completion)](std::optional<QByteArray> data) {
            completion(data ? decode<Snapshot>(*data) : std::nullopt);
        });
    }

    bool has(const QString &typeIdentifier) const { return m_providerStore.contains(typeIdentifier); }

    // The raw JSON under an identifier, answered like load().
    void storeData(const QByteArray &data, const QString &typeIdentifier);
    void loadData(const QString &typeIdentifier, std::function<void(std::optional<QByteArray>)> completion);

    template <class Snapshot>
    static std::optional<Snapshot> decode(const QByteArray &data)
    {
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(data, &error);
        if (error.error != QJsonParseError::NoError || !document.isObject())
            return std::nullopt;
        return Snapshot::fromJson(document.object());
    }

signals:
    // Something was stored; a screen's canPaste may have changed.
    void contentsChanged();

private:
    QHash<QString, QByteArray> m_providerStore;
};
