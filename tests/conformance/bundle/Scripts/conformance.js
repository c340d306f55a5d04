// The tools the official conformance suite calls, as script tools.
var PNG = 'iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8DwHwAFBQIAX8jx0gAAAABJRU5ErkJggg==';
// 44-byte WAV header of an empty 8 kHz mono recording.
var WAV = 'UklGRiQAAABXQVZFZm10IBAAAAABAAEAQB8AAEAfAAABAAgAZGF0YQAAAAA=';

function toolEntry(sid, handlerName, jsonParams) {
    return Tool.dispatch({
        simpleText: function () {
            return 'This is a simple text response for testing.';
        },
        imageContent: function () {
            return Tool.image(PNG, 'image/png');
        },
        audioContent: function () {
            return Tool.audio(WAV, 'audio/wav');
        },
        embeddedResource: function () {
            return Tool.resource('test://embedded-resource', 'This is an embedded resource content.', 'text/plain');
        },
        mixedContent: function () {
            return [Tool.text('Multiple content types test:'), Tool.image(PNG, 'image/png'),
                Tool.resource('test://mixed-content-resource', JSON.stringify({ test: 'data', value: 123 }), 'application/json')];
        },
        jsonSchemaTool: function (params) {
            return 'Received: ' + JSON.stringify(params);
        },
        withLogging: function () {
            Kelvara.log('info', 'Tool execution started');
            Kelvara.log('info', 'Tool processing data', { step: 2 });
            Kelvara.log('info', 'Tool execution completed');
            return 'Tool with logging executed successfully';
        },
        withProgress: function () {
            Kelvara.progress(0, 100, 'Starting');
            Kelvara.progress(50, 100, 'Halfway');
            Kelvara.progress(100, 100, 'Done');
            return 'Progress test completed';
        },
        reconnection: function () {
            // The answer and the message before it wait for the client's GET with Last-Event-ID.
            Kelvara.closeStream(100);
            Kelvara.log('info', 'Stream closed; the client comes back for the rest');
            return 'Reconnection test completed';
        },
        errorHandling: function () {
            throw new Error('This tool intentionally returns an error for testing');
        }
    }, sid, handlerName, jsonParams);
}
