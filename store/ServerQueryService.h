#pragma once

#include "base/AppError.h"
#include "store/FetchRequest.h"

class StoreContext;
class ServerConfig;

// Reaches the single ServerConfig row. There is no other constraint that keeps it single:
// every caller goes through fetchOrCreateServerConfig.
class ServerQueryService {
public:
    // "ServerConfig", at most one.
    static FetchRequest serverRequest();
    // The first row, or nullptr (also when the fetch fails; error then tells why).
    static ServerConfig *fetchServerConfig(StoreContext *context, AppError *error = nullptr);
    // The first row, or a new one with the defaults, inserted but not saved. nullptr only
    // when the fetch fails.
    static ServerConfig *fetchOrCreateServerConfig(StoreContext *context, AppError *error = nullptr);
};
