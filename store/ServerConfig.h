#pragma once

#include "store/StoreRecord.h"

template <class V>
class StoreColumns;

// The server's identity and port. At most one row exists; ServerQueryService makes it.
class ServerConfig final : public StoreRecord {
public:
    // The stored attributes' columns, in order: the table layout.
    static QList<StoreEntityInfo::Column> columnLayout();

    static constexpr StoreEntity staticEntity = StoreEntity::ServerConfig;

    std::optional<QString> serverName() const { return m_v.serverName; }
    void setServerName(std::optional<QString> value) { assign(m_v, &Values::serverName, std::move(value)); }
    std::optional<QString> serverTitle() const { return m_v.serverTitle; }
    void setServerTitle(std::optional<QString> value) { assign(m_v, &Values::serverTitle, std::move(value)); }
    std::optional<QString> serverVersion() const { return m_v.serverVersion; }
    void setServerVersion(std::optional<QString> value) { assign(m_v, &Values::serverVersion, std::move(value)); }
    std::optional<QString> instructions() const { return m_v.instructions; }
    void setInstructions(std::optional<QString> value) { assign(m_v, &Values::instructions, std::move(value)); }
    qint16 port() const { return m_v.port; }
    void setPort(qint16 value) { assign(m_v, &Values::port, value); }

private:
    friend class StoreContext;
    ServerConfig(StoreContext *context, qint64 key, State state);

    struct Values {
        std::optional<QString> serverName;
        std::optional<QString> serverTitle;
        std::optional<QString> serverVersion;
        std::optional<QString> instructions;
        qint16 port = 0;
    };
    Values m_v;
    std::unique_ptr<Values> m_stored;

    void takeSnapshot() override { keepCopy(m_v, m_stored); }
    void restoreSnapshot() override { restoreCopy(m_v, m_stored); }
    void dropSnapshot() override { m_stored.reset(); }
    static const StoreColumns<Values> &columns();
    QVariantList columnValues() const override;
    void readColumns(const QSqlQuery &query, int first) override;
};
