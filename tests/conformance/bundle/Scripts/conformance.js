// The tools the official conformance suite calls, as script tools.
function toolEntry(sid, handlerName, jsonParams) {
    return Tool.dispatch({
        simpleText: function () {
            return 'This is a simple text response for testing.';
        },
        errorHandling: function () {
            throw new Error('This tool intentionally returns an error for testing');
        }
    }, sid, handlerName, jsonParams);
}
