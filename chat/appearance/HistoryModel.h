#pragma once

#include "chat/appearance/HistoryItem.h"

#include <QList>
#include <QObject>
#include <optional>

// The prompts the user has sent, oldest first, kept in the user defaults under
// "chat.input.history" (pretty-printed JSON, sorted keys, ISO 8601 dates). At most 100 are
// kept by `add`; a loaded file may hold more until the next add. Main thread.
class HistoryModel : public QObject {
    Q_OBJECT
public:
    static constexpr int Limit = 100;

    explicit HistoryModel(QObject *parent = nullptr); // reads the stored list
    const QList<HistoryItem> &items() const { return m_items; }

    // Trims white space; a blank text adds nothing. Equal prompts are kept apart.
    void add(const QString &text);
    void remove(const QString &id);
    void clear();
    // The rows whose prompt holds `query`, ignoring case; all rows for an empty query.
    QList<HistoryItem> search(const QString &query) const;

    // "history-<ISO 8601 date>.json", the name "Save history" offers.
    static QString suggestedFileName(const QDateTime &now = QDateTime::currentDateTime());
    // Nothing on success, else the text to show; a failed load leaves the list as it was.
    std::optional<QString> saveToFile(const QString &path) const;
    std::optional<QString> loadFromFile(const QString &path);

    static QByteArray encode(const QList<HistoryItem> &items);
    static std::optional<QList<HistoryItem>> decode(const QByteArray &bytes);

signals:
    void changed();

private:
    void store();

    QList<HistoryItem> m_items;
};
