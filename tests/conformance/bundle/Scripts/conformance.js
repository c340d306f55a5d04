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
        sampling: function (params) {
            var reply = Kelvara.sample([{ role: 'user', content: { type: 'text', text: params.prompt } }], { maxTokens: 100 });
            return 'LLM response: ' + (reply.content && reply.content.text !== undefined ? reply.content.text : JSON.stringify(reply.content));
        },
        elicitation: function (params) {
            var answer = Kelvara.elicit(params.message, {
                type: 'object',
                properties: {
                    username: { type: 'string', description: "User's response" },
                    email: { type: 'string', description: "User's email address" }
                },
                required: ['username', 'email']
            });
            return 'User response: action=' + answer.action + ', content=' + JSON.stringify(answer.content || {});
        },
        elicitationDefaults: function () {
            var answer = Kelvara.elicit('Test client default value handling - please accept with defaults', {
                type: 'object',
                properties: {
                    name: { type: 'string', description: 'User name', default: 'John Doe' },
                    age: { type: 'integer', description: 'User age', default: 30 },
                    score: { type: 'number', description: 'User score', default: 95.5 },
                    status: { type: 'string', description: 'User status', enum: ['active', 'inactive', 'pending'], default: 'active' },
                    verified: { type: 'boolean', description: 'Verification status', default: true }
                },
                required: []
            });
            return 'Elicitation completed: action=' + answer.action + ', content=' + JSON.stringify(answer.content || {});
        },
        elicitationEnums: function () {
            var answer = Kelvara.elicit('Choose from each kind of list', {
                type: 'object',
                properties: {
                    untitledSingle: { type: 'string', enum: ['option1', 'option2', 'option3'] },
                    titledSingle: { type: 'string', oneOf: [
                        { const: 'value1', title: 'First Option' },
                        { const: 'value2', title: 'Second Option' },
                        { const: 'value3', title: 'Third Option' }] },
                    legacyEnum: { type: 'string', enum: ['opt1', 'opt2', 'opt3'], enumNames: ['Option One', 'Option Two', 'Option Three'] },
                    untitledMulti: { type: 'array', items: { type: 'string', enum: ['option1', 'option2', 'option3'] } },
                    titledMulti: { type: 'array', items: { anyOf: [
                        { const: 'value1', title: 'First Choice' },
                        { const: 'value2', title: 'Second Choice' },
                        { const: 'value3', title: 'Third Choice' }] } }
                },
                required: []
            });
            return 'Elicitation completed: action=' + answer.action + ', content=' + JSON.stringify(answer.content || {});
        },
        errorHandling: function () {
            throw new Error('This tool intentionally returns an error for testing');
        }
    }, sid, handlerName, jsonParams);
}
