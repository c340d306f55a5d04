// System information: the kernel, the distribution, the uptime and the free space of the
// temporary folder. Shows Kelvara.shell (whose output lands in the globals stdOut and
// stdErr), Kelvara.process with output arrays of its own, and Kelvara.readFile.
//
// Tool "system_info" of Kelvara's built-in configuration: toolType "ScriptTool",
// execHandler "systemInfo". No parameters.

// key=value lines of /etc/os-release, quotes taken off.
function osRelease() {
    var text = Kelvara.readFile('/etc/os-release');
    var fields = {};
    if (typeof text === 'string') {
        text.split('\n').forEach(function (line) {
            var match = /^([A-Z_]+)=(.*)$/.exec(line.trim());
            if (match) fields[match[1]] = match[2].replace(/^"(.*)"$/, '$1');
        });
    }
    return fields;
}

function uptimeSeconds() {
    var text = Kelvara.readFile('/proc/uptime');
    return typeof text === 'string' ? Math.floor(parseFloat(text)) : 0;
}

function duration(seconds) {
    var days = Math.floor(seconds / 86400);
    var hours = Math.floor(seconds % 86400 / 3600);
    var minutes = Math.floor(seconds % 3600 / 60);
    return (days > 0 ? days + 'd ' : '') + hours + 'h ' + minutes + 'm';
}

function toolEntry(sid, handlerName, jsonParams) {
    return Tool.dispatch({
        systemInfo: function () {
            // shell runs "/bin/sh -c"; its lines come back trimmed, empty ones dropped.
            if (!Kelvara.shell('uname -srm')) {
                throw new Error('uname failed: ' + stdErr.join(' '));
            }
            var kernel = stdOut[0] || '';

            // process takes the executable as a path and names the arrays to fill.
            var temp = Kelvara.getTempPath();
            var free = '';
            if (Kelvara.process('/bin/df', ['-hP', temp], 'dfOut', 'dfErr') && dfOut.length > 1) {
                // Filesystem Size Used Avail Use% Mounted-on
                free = dfOut[1].split(/\s+/)[3] || '';
            }

            var os = osRelease();
            var uptime = uptimeSeconds();
            var lines = [
                'Kernel: ' + kernel,
                'System: ' + (os.PRETTY_NAME || os.NAME || 'unknown'),
                'Uptime: ' + duration(uptime),
                'Free in ' + temp + ': ' + (free || 'unknown')
            ];
            return {
                text: lines.join('\n'),
                metadata: {
                    kernel: kernel,
                    os_name: os.PRETTY_NAME || os.NAME || '',
                    uptime_seconds: uptime,
                    temp_path: temp,
                    temp_free: free
                }
            };
        }
    }, sid, handlerName, jsonParams);
}
