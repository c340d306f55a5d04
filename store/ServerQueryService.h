#pragma once

#include "base/Result.h"
#include "store/FetchRequest.h"

class StoreContext;
class ServerConfig;

// Reaches the single ServerConfig row. There is no other constraint that keeps it single:
// every caller goes through fetchOrCreateServerConfig.
class ServerQueryService {
public:
    // "ServerConfig", at most one.
    static FetchRequest serverRequest();
    // The first row, or nullptr when there is none.
    static Result<ServerConfig *> fetchServerConfig(StoreContext *context);
    // The first row, or a new one with the defaults, inserted but not saved; never nullptr.
    static Result<ServerConfig *> fetchOrCreateServerConfig(StoreContext *context);
};
