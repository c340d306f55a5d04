#pragma once

#include <QString>

// Why a bridge operation failed, in the domain/code/description form the application shows.
// The bridge owns this record so that it does not depend on the layers above it.
struct BridgeError {
    QString domain;
    int code = 0;
    QString description;
};
