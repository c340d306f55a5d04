#pragma once

#include <QObject>
#include <QString>

// The chat's status line and its busy flag, shared by the provider connection and the chat
// session: whoever writes last is shown, and the flag is the one guard against overlapping
// requests (the send key closes on it). Main thread.
class ChatStatus : public QObject {
    Q_OBJECT

public:
    explicit ChatStatus(QObject *parent = nullptr) : QObject(parent) {}

    const QString &text() const { return m_text; }
    bool isBusy() const { return m_busy; }

    // Each emits `changed`.
    void setText(const QString &text);
    void setBusy(bool busy);

signals:
    void changed();

private:
    QString m_text;
    bool m_busy = false;
};
