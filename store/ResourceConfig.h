#pragma once

#include "store/StoreRecord.h"

template <class V>
class StoreColumns;

// One resource. `annLastModified` is part of the model but nothing reads or writes it.
class ResourceConfig final : public StoreRecord {
public:
    // The stored attributes' columns, in order: the table layout.
    static QList<StoreEntityInfo::Column> columnLayout();

    static constexpr StoreEntity staticEntity = StoreEntity::ResourceConfig;

    std::optional<QUuid> id() const { return m_v.id; }
    void setId(std::optional<QUuid> value) { assign(m_v, &Values::id, std::move(value)); }
    std::optional<QString> name() const { return m_v.name; }
    void setName(std::optional<QString> value) { assign(m_v, &Values::name, std::move(value)); }
    std::optional<QString> resourceDescription() const { return m_v.resourceDescription; }
    void setResourceDescription(std::optional<QString> value)
    {
        assign(m_v, &Values::resourceDescription, std::move(value));
    }
    std::optional<QString> type() const { return m_v.type; }
    void setType(std::optional<QString> value) { assign(m_v, &Values::type, std::move(value)); }
    std::optional<QString> mimeType() const { return m_v.mimeType; }
    void setMimeType(std::optional<QString> value) { assign(m_v, &Values::mimeType, std::move(value)); }
    std::optional<QUrl> uri() const { return m_v.uri; }
    void setUri(std::optional<QUrl> value) { assign(m_v, &Values::uri, std::move(value)); }
    std::optional<QString> contextTags() const { return m_v.contextTags; }
    void setContextTags(std::optional<QString> value) { assign(m_v, &Values::contextTags, std::move(value)); }
    std::optional<QString> relatedResources() const { return m_v.relatedResources; }
    void setRelatedResources(std::optional<QString> value) { assign(m_v, &Values::relatedResources, std::move(value)); }
    // A template's values offered for completion, per variable, as compact JSON object text.
    std::optional<QString> completionValues() const { return m_v.completionValues; }
    void setCompletionValues(std::optional<QString> value) { assign(m_v, &Values::completionValues, std::move(value)); }
    // A script that gives the resource's content (a template's gets its variables), and one
    // that offers a template's completion values; paths as for a tool's script.
    std::optional<QString> scriptFileName() const { return m_v.scriptFileName; }
    void setScriptFileName(std::optional<QString> value) { assign(m_v, &Values::scriptFileName, std::move(value)); }
    std::optional<QString> valuesScript() const { return m_v.valuesScript; }
    void setValuesScript(std::optional<QString> value) { assign(m_v, &Values::valuesScript, std::move(value)); }
    std::optional<QString> annAudience() const { return m_v.annAudience; }
    void setAnnAudience(std::optional<QString> value) { assign(m_v, &Values::annAudience, std::move(value)); }
    std::optional<double> annPriority() const { return m_v.annPriority; }
    void setAnnPriority(std::optional<double> value) { assign(m_v, &Values::annPriority, std::move(value)); }
    std::optional<QDateTime> annLastModified() const { return m_v.annLastModified; }
    void setAnnLastModified(std::optional<QDateTime> value) { assign(m_v, &Values::annLastModified, std::move(value)); }

private:
    friend class StoreContext;
    ResourceConfig(StoreContext *context, qint64 key, State state);

    struct Values {
        std::optional<QUuid> id;
        std::optional<QString> name;
        std::optional<QString> resourceDescription;
        std::optional<QString> type;
        std::optional<QString> mimeType;
        std::optional<QUrl> uri;
        std::optional<QString> contextTags;
        std::optional<QString> relatedResources;
        std::optional<QString> annAudience;
        std::optional<double> annPriority;
        std::optional<QDateTime> annLastModified;
        std::optional<QString> completionValues;
        std::optional<QString> scriptFileName;
        std::optional<QString> valuesScript;
    };
    Values m_v;
    std::unique_ptr<Values> m_stored;

    void takeSnapshot() override { keepCopy(m_v, m_stored); }
    void restoreSnapshot() override { restoreCopy(m_v, m_stored); }
    void dropSnapshot() override { m_stored.reset(); }
    static const StoreColumns<Values> &columns();
    QVariantList columnValues() const override;
    void readColumns(const QSqlQuery &query, int first) override;
    std::optional<QString> nameValue() const override { return m_v.name; }
};
