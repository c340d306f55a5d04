// Ask the user: a tool that needs a word from the person at the client before it goes on.
// Shows Kelvara.elicit: the client shows a form built from the schema, and the script waits
// for the user's answer (within the script's time limit).
//
// A tool script to add to a configuration yourself: toolType "ScriptTool", execMethod
// "toolEntry", execHandler "plan_trip". Parameters:
//   city   where the trip goes

function toolEntry(sid, handlerName, jsonParams) {
    return Tool.dispatch({
        plan_trip: function (params) {
            var city = params.city || 'somewhere';
            // Flat properties only: string, number, integer, boolean, or an array of choices.
            var answer = Kelvara.elicit('Some details for your trip to ' + city, {
                type: 'object',
                properties: {
                    nights: { type: 'integer', title: 'Nights', minimum: 1, maximum: 30, default: 3 },
                    budget: { type: 'string', title: 'Budget', enum: ['low', 'medium', 'high'], default: 'medium' },
                    extras: {
                        type: 'array', title: 'Extras',
                        items: { anyOf: [{ const: 'museum', title: 'Museums' }, { const: 'food', title: 'Food tour' }] }
                    },
                    email: { type: 'string', title: 'Send the plan to', format: 'email' }
                },
                required: ['nights']
            });
            if (answer.action !== 'accept') {
                // "decline": the user said no; "cancel": the user closed the form.
                return 'No trip planned (' + answer.action + ').';
            }
            var details = answer.content;
            return details.nights + ' nights in ' + city + ' on a ' + (details.budget || 'medium') + ' budget' +
                (details.extras && details.extras.length ? ', with ' + details.extras.join(' and ') : '') + '.';
        }
    }, sid, handlerName, jsonParams);
}
