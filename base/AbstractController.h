#pragma once

#include <QObject>
#include <QString>

// Observable base of every screen controller. A view redraws on changed(); the menus only
// ever talk to the focused controller through the can*/command operations below, so each
// controller decides for itself what a command means.
class AbstractController : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool shouldShowAlert READ shouldShowAlert WRITE setShouldShowAlert NOTIFY shouldShowAlertChanged)
    Q_PROPERTY(QString alertMessage READ alertMessage NOTIFY alertMessageChanged)
    Q_PROPERTY(QString alertTitle READ alertTitle NOTIFY alertTitleChanged)
    Q_PROPERTY(bool canAdd READ canAdd NOTIFY changed)
    Q_PROPERTY(bool canSave READ canSave NOTIFY changed)
    Q_PROPERTY(bool canCopy READ canCopy NOTIFY changed)
    Q_PROPERTY(bool canPaste READ canPaste NOTIFY changed)
    Q_PROPERTY(bool canDelete READ canDelete NOTIFY changed)

public:
    explicit AbstractController(QObject *parent = nullptr);
    ~AbstractController() override;

    virtual bool canAdd() const;
    virtual bool canSave() const;
    virtual bool canCopy() const;
    virtual bool canPaste() const;
    virtual bool canDelete() const;

    virtual void copySelectedItem();
    virtual void pasteItem();
    virtual void triggerDelete();
    virtual void reload();

    // Queued on the controller's (main) thread from any thread: sets the title, the
    // message, then shouldShowAlert, then sends changed().
    void showAlert(const QString &title, const QString &message);
    // Sends changed() alone.
    void notifyChange();

    bool shouldShowAlert() const { return m_shouldShowAlert; }
    QString alertMessage() const { return m_alertMessage; }
    QString alertTitle() const { return m_alertTitle; }
    // The screen clears the flag when the user dismisses the alert.
    void setShouldShowAlert(bool show);

signals:
    // The change signal: something a view shows may have changed.
    void changed();
    void shouldShowAlertChanged();
    void alertMessageChanged();
    void alertTitleChanged();

private:
    void applyAlert(const QString &title, const QString &message);

    bool m_shouldShowAlert = false;
    QString m_alertMessage;
    QString m_alertTitle = QStringLiteral("Error");
};
