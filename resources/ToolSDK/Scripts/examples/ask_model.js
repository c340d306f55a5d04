// Ask the client's model: a tool that has the language model of the calling client write
// something, without a model or a key of its own. Shows Kelvara.sample: the client (and often
// its user) decides whether and how to answer, and the script waits for it.
//
// A tool script to add to a configuration yourself: toolType "ScriptTool", execMethod
// "toolEntry", execHandler "summarize". Parameters:
//   text   what to summarise

function toolEntry(sid, handlerName, jsonParams) {
    return Tool.dispatch({
        summarize: function (params) {
            var reply = Kelvara.sample([
                { role: 'user', content: { type: 'text', text: 'Summarise in one sentence:\n\n' + (params.text || '') } }
            ], {
                systemPrompt: 'You write short, plain summaries.',
                maxTokens: 200,
                temperature: 0.2,
                modelPreferences: { hints: [{ name: 'small' }], speedPriority: 0.8 }
            });
            // The reply is the client's message: role, content (text here), model, stopReason.
            var text = reply.content && reply.content.type === 'text' ? reply.content.text : JSON.stringify(reply.content);
            return text + '\n(' + reply.model + ')';
        }
    }, sid, handlerName, jsonParams);
}
