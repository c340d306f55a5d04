#pragma once

#include "app/config/RelatedResourceItem.h"
#include "app/config/StoreBackedController.h"

#include <QStringList>

class ResourceConfig;

// The controller of the Resources screen, on the shared edit transaction. Beyond the base
// it writes the form's fields only when they differ (so showing a record makes no pending
// change), reads and writes the two list texts (`contextTags`, `relatedResources`) for
// their sheets, guesses MIME types, filters the list, and copies and pastes resources.
//
// Main thread only.
class ResourceConfigController : public StoreBackedController {
    Q_OBJECT

public:
    enum ResourceFocusedField {
        resourceListView,
        resourceDetailView,
        resourceName,
        resourceDescription,
        resourceType,
        resourceMimeType,
        contextTags,
        relatedResources,
        resourceUri,
        resourceAnnAudience,
        resourceAnnPriority,
        resourceContextTags,
        resourceRelatedView,
    };
    Q_ENUM(ResourceFocusedField)

    static inline const QString screenTitle = QStringLiteral("Resource Configuration");
    static inline const QString leadText = QStringLiteral("Resources provide additional context data for MCP clients.");
    static inline const QString helpFile = QStringLiteral("help_resource_config.md");
    static inline const QString emptySelectionText =
        QStringLiteral("Select a resource to view details or click '+' for new resource configuration.");
    static inline const QString filterPlaceholder = QStringLiteral("Search name or description…");
    static const QStringList audienceChoices;

    explicit ResourceConfigController(StoreContext *context, ConfigClipboard *clipboard = nullptr,
                                      QObject *parent = nullptr);

    QList<ResourceConfig *> resourceConfigs() const;
    ResourceConfig *selectedResourceConfig() const;
    bool isAddingResourceConfig() const { return isAdding(); }
    ResourceConfig *resourceToDelete() const;

    void addResourceConfigTapped() { addTapped(); }
    void editButtonTapped() { setFocus(resourceDetailView); }
    void deleteButtonTapped() { deleteTapped(); }
    void saveButtonTapped() { saveTapped(); }
    void revertButtonTapped() { revertTapped(); }
    void deleteTapped() override;

    bool canDelete() const override;
    bool canDeleteFromList() const;
    bool canCopy() const override;
    bool canPaste() const override;
    void copySelectedItem() override;

    // The form's writes to the selection; each changes the record only when it differs.
    void setName(const QString &text);
    void setResourceDescription(const QString &text);
    void setType(const QString &text);
    void setMimeType(const QString &text);
    // A differing text is parsed as a URL; the result, or no URI when it does not parse.
    void setUriText(const QString &text);
    // A decimal number without locale; empty clears; other text changes nothing.
    void setPriorityText(const QString &text);
    void setAudience(const QString &word);
    // The values offered for completing a template's variables, written as
    // "name: a, b; other: c"; empty text removes them.
    void setValuesText(const QString &text);
    static QString valuesText(const ResourceConfig *resource);
    // That text as the stored JSON object, nothing when it names no variable.
    static std::optional<QString> storedValues(const QString &text);
    // The text fields show these.
    static QString uriText(const ResourceConfig *resource);
    static QString priorityText(const ResourceConfig *resource);

    // The "Context Tags" sheet: a JSON array of strings, else the text split at commas.
    static QStringList readTags(const QString &text);
    // Encodes the tags without the empty ones; written only when the text differs.
    void saveTags(const QStringList &tags);
    // The "Related Resources" sheet.
    static QList<RelatedResourceItem> readRelated(const QString &text) { return RelatedResourceItem::decodeList(text); }
    void saveRelated(const QList<RelatedResourceItem> &items);
    // The MIME type of a URL text by its file name; "text/plain" without extension or type.
    static QString guessMimeType(const QString &urlText);

    // The list as filtered by the query (trimmed, case-folded, name or description).
    QList<ResourceConfig *> filteredResources(const QString &query) const;
    static QString rowName(const ResourceConfig *resource);
    static QString rowDescription(const ResourceConfig *resource);
    static QString rowType(const ResourceConfig *resource);
    static QString rowMimeType(const ResourceConfig *resource);
    QString deleteConfirmationText() const;

protected:
    FetchRequest listRequest() const override;
    StoreRecord *createRecord() override;
    void willReloadAfterAddingRevert() override { setSelectedRecord(nullptr); }
    void didDeleteTopRecord() override { setSelectedRecord(nullptr); }
    void pasteFoundNothing() override;

private:
    template <class Value, class Setter>
    void writeIfDifferent(const std::optional<Value> &stored, const Value &value, Setter setter);
};
