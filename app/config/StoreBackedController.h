#pragma once

#include "base/AbstractController.h"
#include "app/config/ConfigClipboard.h"
#include "store/FetchRequest.h"
#include "store/StoreContext.h"

#include <QList>
#include <QPointer>
#include <functional>
#include <optional>
#include <vector>

// The configuration screens' side (tools, resources, prompts) of the store's edit
// transaction. There is no transaction object: the transaction is the set of pending
// changes of the one context, so a pending edit made on one screen is saved or reverted by
// any other.
//
// This base carries the generic part: the list of top records and its selection, the two
// marks (unsaved changes, adding), the context subscription, add, save, revert, reload,
// the delete of a top record behind a confirmation and the delete of a child, the queued
// focus, and copy and paste through ConfigClipboard. A screen's controller fills in the
// hooks and adds its own child selections, focus enumeration and channels.
//
// Everything runs on the main thread; the "later steps" are queued on this object, so
// they are dropped if the controller is gone.
class StoreBackedController : public AbstractController {
    Q_OBJECT
    Q_PROPERTY(bool hasUnsavedChanges READ hasUnsavedChanges NOTIFY hasUnsavedChangesChanged)
    Q_PROPERTY(bool isAdding READ isAdding NOTIFY isAddingChanged)
    Q_PROPERTY(bool showingDeleteConfirmation READ showingDeleteConfirmation WRITE setShowingDeleteConfirmation
                   NOTIFY showingDeleteConfirmationChanged)
    Q_PROPERTY(int focusedFieldValue READ focusedFieldValue NOTIFY focusedFieldChanged)

public:
    ~StoreBackedController() override;

    StoreContext *context() const { return m_context; }

    // The list the screen shows, and its selection (records of the screen's top entity).
    const QList<StoreRecord *> &records() const { return m_records; }
    template <class T>
    QList<T *> recordsAs() const
    {
        QList<T *> typed;
        typed.reserve(m_records.size());
        for (StoreRecord *record : m_records)
            typed.append(static_cast<T *>(record));
        return typed;
    }
    StoreRecord *selectedRecord() const { return m_selected; }
    template <class T>
    T *selectedAs() const
    {
        return static_cast<T *>(m_selected);
    }
    void setSelectedRecord(StoreRecord *record);

    // Mirror of the context's pending changes.
    bool hasUnsavedChanges() const { return m_hasUnsavedChanges; }
    // Reads hasChanges; does nothing when that and flag both equal the mark, else sets
    // the mark to hasChanges || flag. A controller that just made a record passes true.
    void updateUnsaved(bool flag);
    // A newly created top record is in the open transaction.
    bool isAdding() const { return m_isAdding; }

    // The screen's focus enumeration as an integer; none is nullopt (-1 as a property).
    std::optional<int> focusedField() const { return m_focusedField; }
    int focusedFieldValue() const { return m_focusedField.value_or(-1); }
    // Nothing when the focus already equals field; else, as a later step, sets it and
    // sends focusChanged().
    void setFocus(std::optional<int> field);

    // The confirmation pair of a top record's delete.
    bool showingDeleteConfirmation() const { return m_showingDeleteConfirmation; }
    void setShowingDeleteConfirmation(bool showing);
    StoreRecord *recordToDelete() const { return m_recordToDelete; }

    // The commands behind the screen's channels.
    // Add a top record: refused while adding (alert or silence, see addRefusalMessage);
    // else the adding mark now and the record as a later step.
    void addTapped();
    // Saves the context when there are unsaved changes; a failure raises the alert "Error".
    void saveTapped();
    // Rolls the context back when there are unsaved changes (see the hooks for the rest).
    void revertTapped();
    // Fetches the list as a later step and applies the screen's selection rule.
    void reload() override;
    // By default: with the focus on the top record and a selection, asks to delete it.
    virtual void deleteTapped();
    // The user confirmed: deletes recordToDelete and saves at once, so every other
    // pending change is written too. On success the list is fetched again.
    void confirmDelete();
    void cancelDelete();

    bool canAdd() const override { return !m_isAdding; }
    bool canSave() const override { return m_hasUnsavedChanges; }
    void triggerDelete() override { deleteTapped(); }
    // Tries the registered identifiers in order; the first snapshot found is pasted.
    void pasteItem() override;

    // A line for the developer console (standard output).
    static void printConsole(const QString &line);

signals:
    void hasUnsavedChangesChanged();
    void isAddingChanged();
    void showingDeleteConfirmationChanged();
    void focusedFieldChanged();
    // The channel sent after a focus change has been applied.
    void focusChanged();
    void recordsChanged();
    void selectedRecordChanged();

protected:
    // Subscribes to the context and queues the first reload.
    explicit StoreBackedController(StoreContext *context, ConfigClipboard *clipboard = nullptr,
                                   QObject *parent = nullptr);

    // --- Hooks for the screen. ---
    // The list's fetch.
    virtual FetchRequest listRequest() const = 0;
    // A new top record with its creation defaults (records() holds the listed ones).
    virtual StoreRecord *createRecord() = 0;
    // The alert text for an add while adding; nullopt ignores the command silently.
    virtual std::optional<QString> addRefusalMessage() const { return std::nullopt; }
    // After a new record was appended, selected and marked (move the focus here).
    virtual void didAddRecord(StoreRecord * /*record*/) {}
    // Reload selects the first record always (true) or only while nothing is selected.
    virtual bool selectsFirstAfterReloadAlways() const { return false; }
    virtual void didReload() {}
    // Revert, not adding: after the rollback. The default refreshes the selected record;
    // screens also refresh their child selections and move them when the focus is on a
    // child list.
    virtual void refreshAfterRevert();
    // Revert, adding: after the rollback, before reload (clear the selection here).
    virtual void willReloadAfterAddingRevert() {}
    // Where the focus goes after a revert (nullopt: it stays).
    virtual std::optional<int> focusAfterRevert(bool /*wasAdding*/) const { return std::nullopt; }
    // Whether the focus stands on the top record, for the default deleteTapped().
    virtual bool focusIsOnTopRecord() const { return true; }
    // A confirmed top-record delete was saved, before the reload.
    virtual void didDeleteTopRecord() {}
    virtual void selectionDidChange() {}
    // The context changed; the default queues hasUnsavedChanges = hasChanges.
    virtual void contextDidChange();
    // pasteItem() found nothing under any registered identifier.
    virtual void pasteFoundNothing() {}

    // --- Helpers for the screen. ---
    void setHasUnsavedChanges(bool value);
    void setAdding(bool value);
    // Stores the record and shows the confirmation.
    void requestDelete(StoreRecord *record);
    // The child rule: deleteObject without save, unsaved mark set. Select the next child after it.
    void deleteChild(StoreRecord *child);
    // Appends a record made by add or paste to the list.
    void appendRecord(StoreRecord *record);
    // Drops records that left the store from the list; a removed selection falls to the
    // first remaining record (or none).
    void pruneRecords();
    ConfigClipboard *clipboard() const { return m_clipboard; }

    template <class Snapshot>
    bool copyToClipboard(const Snapshot &snapshot, const QString &typeIdentifier)
    {
        return m_clipboard->store(snapshot, typeIdentifier);
    }
    // Registers one identifier for pasteItem(), in the order of the calls.
    template <class Snapshot>
    void addPasteHandler(const QString &typeIdentifier, std::function<void(const Snapshot &)> handler)
    {
        m_pasteHandlers.push_back({typeIdentifier, [handler = std::move(handler)](const QByteArray &data) {
                                       auto snapshot = ConfigClipboard::decode<Snapshot>(data);
                                       if (!snapshot)
                                           return false;
                                       handler(*snapshot);
                                       return true;
                                   }});
    }
    QStringList pasteIdentifiers() const;
    // True when the clipboard holds any registered identifier.
    bool clipboardHasPasteable() const;

private:
    struct PasteHandler {
        QString typeIdentifier;
        std::function<bool(const QByteArray &)> accept;
    };

    void performReload();
    void tryPaste(size_t index);
    void setRecords(QList<StoreRecord *> records);

    StoreContext *m_context;
    ConfigClipboard *m_clipboard;
    QList<StoreRecord *> m_records;
    StoreRecord *m_selected = nullptr;
    bool m_hasUnsavedChanges = false;
    bool m_isAdding = false;
    bool m_showingDeleteConfirmation = false;
    StoreRecord *m_recordToDelete = nullptr;
    std::optional<int> m_focusedField;
    bool m_unsavedStepQueued = false;
    bool m_creationQueued = false;
    std::vector<PasteHandler> m_pasteHandlers;
};
