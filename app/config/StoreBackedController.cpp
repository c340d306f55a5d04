#include "app/config/StoreBackedController.h"

#include <QMetaObject>

#include <cstdio>

StoreBackedController::StoreBackedController(StoreContext *context, ConfigClipboard *clipboard, QObject *parent)
    : AbstractController(parent), m_context(context), m_clipboard(clipboard ? clipboard : ConfigClipboard::shared())
{
    // The connection goes with this object, so the context never calls into a dead controller.
    connect(m_context, &StoreContext::objectsDidChange, this, &StoreBackedController::contextDidChange);
    connect(m_clipboard, &ConfigClipboard::contentsChanged, this, &AbstractController::changed);
    reload();
}

StoreBackedController::~StoreBackedController() = default;

void StoreBackedController::contextDidChange()
{
    // One queued step covers a burst of changes: it reads hasChanges when it runs.
    if (m_unsavedStepQueued)
        return;
    m_unsavedStepQueued = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_unsavedStepQueued = false;
            const bool changes = m_context->hasChanges();
            setHasUnsavedChanges(changes);
            // Saved or rolled back elsewhere (another screen, a window's close question): a
            // record being added is no longer new, or is gone.
            if (!changes && m_isAdding && !m_creationQueued) {
                pruneRecords();
                setAdding(false);
            }
        },
        Qt::QueuedConnection);
}

void StoreBackedController::setHasUnsavedChanges(bool value)
{
    if (m_hasUnsavedChanges == value)
        return;
    m_hasUnsavedChanges = value;
    emit hasUnsavedChangesChanged();
    emit changed();
}

void StoreBackedController::updateUnsaved(bool flag)
{
    const bool hasChanges = m_context->hasChanges();
    if (hasChanges == m_hasUnsavedChanges && flag == m_hasUnsavedChanges)
        return;
    setHasUnsavedChanges(hasChanges || flag);
}

void StoreBackedController::setAdding(bool value)
{
    if (m_isAdding == value)
        return;
    m_isAdding = value;
    emit isAddingChanged();
    emit changed();
}

void StoreBackedController::setSelectedRecord(StoreRecord *record)
{
    if (m_selected == record)
        return;
    m_selected = record;
    selectionDidChange();
    emit selectedRecordChanged();
    emit changed();
}

void StoreBackedController::setFocus(std::optional<int> field)
{
    if (m_focusedField == field)
        return;
    QMetaObject::invokeMethod(
        this,
        [this, field] {
            m_focusedField = field;
            emit focusedFieldChanged();
            emit focusChanged();
            emit changed();
        },
        Qt::QueuedConnection);
}

void StoreBackedController::setShowingDeleteConfirmation(bool showing)
{
    if (m_showingDeleteConfirmation == showing)
        return;
    m_showingDeleteConfirmation = showing;
    emit showingDeleteConfirmationChanged();
    emit changed();
}

void StoreBackedController::setRecords(QList<StoreRecord *> records)
{
    m_records = std::move(records);
    emit recordsChanged();
    emit changed();
}

void StoreBackedController::appendRecord(StoreRecord *record)
{
    if (!record || m_records.contains(record))
        return;
    m_records.append(record);
    emit recordsChanged();
    emit changed();
}

void StoreBackedController::pruneRecords()
{
    auto gone = [](const StoreRecord *r) { return r->isDetached() || r->isDeleted(); };
    if (std::none_of(m_records.cbegin(), m_records.cend(), gone) && !(m_selected && gone(m_selected)))
        return;
    QList<StoreRecord *> kept = m_records;
    kept.removeIf(gone);
    setRecords(std::move(kept));
    if (m_selected && gone(m_selected))
        setSelectedRecord(m_records.isEmpty() ? nullptr : m_records.first());
}

void StoreBackedController::addTapped()
{
    if (m_isAdding) {
        if (const std::optional<QString> message = addRefusalMessage())
            showAlert(QStringLiteral("Error"), *message);
        return;
    }
    setAdding(true);
    m_creationQueued = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_creationQueued = false;
            StoreRecord *record = createRecord();
            if (!record)
                return;
            appendRecord(record);
            setSelectedRecord(record);
            updateUnsaved(true);
            didAddRecord(record);
        },
        Qt::QueuedConnection);
}

void StoreBackedController::saveTapped()
{
    if (!m_hasUnsavedChanges)
        return;
    if (const Result<void> saved = m_context->save()) {
        setHasUnsavedChanges(false);
        setAdding(false);
    } else {
        showAlert(QStringLiteral("Error"), saved.error().description);
    }
}

void StoreBackedController::revertTapped()
{
    if (!m_hasUnsavedChanges)
        return;
    const bool wasAdding = m_isAdding;
    m_context->rollback();
    // A record this screen pasted or added is gone from the context now; the list must
    // not keep showing it.
    pruneRecords();
    if (!wasAdding) {
        refreshAfterRevert();
        updateUnsaved(false);
    } else {
        setAdding(false);
        willReloadAfterAddingRevert();
        updateUnsaved(false);
        reload();
    }
    if (const std::optional<int> focus = focusAfterRevert(wasAdding))
        setFocus(*focus);
}

void StoreBackedController::refreshAfterRevert()
{
    if (m_selected)
        m_context->refresh(m_selected, false);
}

void StoreBackedController::reload()
{
    QMetaObject::invokeMethod(
        this, [this] { performReload(); }, Qt::QueuedConnection);
}

void StoreBackedController::performReload()
{
    Result<QList<StoreRecord *>> fetched = m_context->execute(listRequest());
    if (!fetched) {
        showAlert(QStringLiteral("Error"), fetched.error().description);
        return;
    }
    setRecords(std::move(fetched).value());
    if (m_selected && !m_records.contains(m_selected))
        setSelectedRecord(nullptr);
    if (!m_records.isEmpty() && (selectsFirstAfterReloadAlways() || !m_selected))
        setSelectedRecord(m_records.first());
    didReload();
}

void StoreBackedController::deleteTapped()
{
    if (focusIsOnTopRecord() && m_selected)
        requestDelete(m_selected);
}

void StoreBackedController::requestDelete(StoreRecord *record)
{
    m_recordToDelete = record;
    setShowingDeleteConfirmation(record != nullptr);
}

void StoreBackedController::cancelDelete()
{
    m_recordToDelete = nullptr;
    setShowingDeleteConfirmation(false);
}

void StoreBackedController::confirmDelete()
{
    StoreRecord *record = m_recordToDelete;
    m_recordToDelete = nullptr;
    setShowingDeleteConfirmation(false);
    if (!record || record->isDetached() || record->isDeleted())
        return;
    m_context->deleteObject(record);
    if (const Result<void> saved = m_context->save(); !saved) {
        showAlert(QStringLiteral("Error"), saved.error().description);
        return;
    }
    // The save wrote every pending change, the record being added among them (or deleted it).
    setHasUnsavedChanges(false);
    setAdding(false);
    pruneRecords();
    didDeleteTopRecord();
    reload();
}

void StoreBackedController::deleteChild(StoreRecord *child)
{
    if (!child)
        return;
    m_context->deleteObject(child);
    updateUnsaved(true);
}

QStringList StoreBackedController::pasteIdentifiers() const
{
    QStringList identifiers;
    for (const PasteHandler &handler : m_pasteHandlers)
        identifiers.append(handler.typeIdentifier);
    return identifiers;
}

bool StoreBackedController::clipboardHasPasteable() const
{
    return std::any_of(m_pasteHandlers.cbegin(), m_pasteHandlers.cend(),
                       [this](const PasteHandler &handler) { return m_clipboard->has(handler.typeIdentifier); });
}

void StoreBackedController::pasteItem() { tryPaste(0); }

void StoreBackedController::tryPaste(size_t index)
{
    if (index >= m_pasteHandlers.size()) {
        pasteFoundNothing();
        return;
    }
    QPointer<StoreBackedController> self(this);
    m_clipboard->loadData(m_pasteHandlers[index].typeIdentifier, [self, index](std::optional<QByteArray> data) {
        if (!self)
            return;
        if (data && self->m_pasteHandlers[index].accept(*data))
            return;
        self->tryPaste(index + 1);
    });
}

void StoreBackedController::printConsole(const QString &line)
{
    std::fputs(line.toLocal8Bit().constData(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}
