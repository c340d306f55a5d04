#pragma once

#include <JavaScriptCore/JavaScript.h>

#include <memory>

class ScriptBridge;

// Binds ScriptBridge's methods to a JavaScript object: the exported interface of the host
// object `Kelvara`. Each method converts its arguments, calls the bridge and converts the
// answer; a method called on an object that is not a host object does nothing and gives
// undefined.
class ScriptBridgeExports {
public:
    // A JavaScript object for the bridge; the object shares ownership of the bridge and
    // lets go of it when collected.
    static JSObjectRef makeHostObject(JSContextRef ctx, const std::shared_ptr<ScriptBridge> &bridge);
    // The bridge behind a host object, or nullptr.
    static ScriptBridge *bridgeOf(JSContextRef ctx, JSObjectRef object);

private:
    static JSClassRef hostClass();
};
