// The server's overhead per tool call over the agent's own time. Each round
// sends one request straight to velmora-agent (a child process, the request on
// its stdin) and the same action as a tools/call through velmora-mcp, in
// alternating order, and times both from sending to the answer. A second pair
// of servers and agents does the same with a stand-in agent (a shell script
// that prints a fixed response), so that the server's own cost shows without
// the desktop's variance.
//
//   node overhead.mjs VELMORA_MCP VELMORA_AGENT CALLS

import { spawn } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import readline from 'node:readline';

const [serverPath, agentPath, callsText] = process.argv.slice(2);
const calls = Number(callsText || 30);
const target = 'galculator';
const work = fs.mkdtempSync(path.join(process.env.VELMORA_DESKTOP_DIR || os.tmpdir(), 'mcp-bench-'));

const standIn = path.join(work, 'stand-in-agent');
fs.writeFileSync(standIn, `#!/bin/sh\ncat >/dev/null\ncat <<'JSON'\n${JSON.stringify({
    protocolVersion: 'velmora.driver_broker.v1', sessionId: 'stand-in', ok: true,
    receipts: [{
        action: 'frontmost', binarySha256: 'unavailable', bundleIdentifier: target, frontmostTargetMatch: true,
        postActionStructuralState: { elementCount: 0, roleHistogram: {} }, receiptId: 'r-1', reversible: true,
        schema: 'velmora.native_app_runtime_receipt.v1', succeeded: true, ts: '2026-11-16T03:04:05Z',
    }],
})}\nJSON\n`, { mode: 0o755 });

function runAgent(request, program = agentPath) {
    return new Promise((resolve, reject) => {
        const child = spawn(program, ['run'], { stdio: ['pipe', 'pipe', 'ignore'] });
        let out = '';
        child.stdout.on('data', (data) => { out += data; });
        child.on('error', reject);
        child.on('close', (status) => resolve({ status, response: JSON.parse(out) }));
        child.stdin.end(JSON.stringify(request));
    });
}

let nextId = 1;
function startServer(agent) {
    const server = spawn(serverPath, ['--agent', agent, '--approve', target,
        '--audit-log', path.join(work, 'audit.jsonl')], { stdio: ['pipe', 'pipe', 'inherit'] });
    const waiting = new Map();
    readline.createInterface({ input: server.stdout }).on('line', (line) => {
        const message = JSON.parse(line);
        waiting.get(message.id)?.(message);
        waiting.delete(message.id);
    });
    server.send = (method, params) => {
        const id = nextId++;
        return new Promise((resolve) => {
            waiting.set(id, resolve);
            server.stdin.write(JSON.stringify({ jsonrpc: '2.0', id, method, params }) + '\n');
        });
    };
    return server;
}
const server = startServer(agentPath);
const standInServer = startServer(standIn);
const send = (method, params) => server.send(method, params);

function request(actions) {
    return {
        protocolVersion: 'velmora.driver_broker.v1', sessionId: `bench-${nextId}`, seatLease: 'bench',
        targetBundleId: target, approvedApps: [target], actions,
    };
}

const kinds = [
    {
        name: 'stand-in', tool: 'frontmost', arguments: { target }, actions: [{ kind: 'frontmost' }],
        server: standInServer, agent: standIn,
    },
    { name: 'frontmost', tool: 'frontmost', arguments: { target }, actions: [{ kind: 'frontmost' }] },
    {
        name: 'click',
        tool: 'click',
        arguments: { target, selector: { role: 'AXToggleButton', title: '0' } },
        actions: [{ kind: 'click', selector: { role: 'AXToggleButton', title: '0' } }],
    },
];

const milliseconds = (start) => Number(process.hrtime.bigint() - start) / 1e6;
const median = (values) => {
    const sorted = [...values].sort((a, b) => a - b);
    return sorted[Math.floor(sorted.length / 2)];
};
const mean = (values) => values.reduce((a, b) => a + b, 0) / values.length;

let launchedPid = null;
try {
    for (const s of [server, standInServer]) {
        await s.send('initialize', { protocolVersion: '2025-06-18', capabilities: {}, clientInfo: { name: 'bench', version: '1' } });
        s.stdin.write(JSON.stringify({ jsonrpc: '2.0', method: 'notifications/initialized' }) + '\n');
    }
    const before = new Set(fs.readdirSync('/proc').filter((name) => /^\d+$/.test(name)));
    await runAgent(request([{ kind: 'launch' }]));
    // Until the keys are there.
    for (let i = 0; i < 60; ++i) {
        const { response } = await runAgent(request([{ kind: 'assert', selector: { role: 'AXToggleButton', title: '0' } }]));
        if (response.ok) break;
    }
    for (const name of fs.readdirSync('/proc')) {
        if (before.has(name) || !/^\d+$/.test(name)) continue;
        try {
            if (fs.readFileSync(`/proc/${name}/environ`, 'latin1').includes('GIO_LAUNCHED_DESKTOP_FILE=/usr/share/applications/galculator.desktop')) launchedPid = Number(name);
        } catch { /* gone */ }
    }
    console.log(`velmora-mcp overhead: ${calls} calls of each kind, each way, alternating`);
    for (const kind of kinds) {
        const direct = [];
        const through = [];
        for (let i = 0; i < calls; ++i) {
            const order = i % 2 === 0 ? ['direct', 'through'] : ['through', 'direct'];
            for (const way of order) {
                const start = process.hrtime.bigint();
                if (way === 'direct') {
                    const { response } = await runAgent(request(kind.actions), kind.agent);
                    direct.push(milliseconds(start));
                    if (!response.ok) throw new Error(`agent: ${JSON.stringify(response)}`);
                } else {
                    const answer = await (kind.server ?? server).send('tools/call', { name: kind.tool, arguments: kind.arguments });
                    through.push(milliseconds(start));
                    if (answer.result?.isError !== false) throw new Error(`server: ${JSON.stringify(answer)}`);
                }
            }
        }
        const overhead = through.map((t, i) => t - direct[i]);
        console.log(`${kind.name.padEnd(10)} agent alone: median ${median(direct).toFixed(1)} ms, mean ${mean(direct).toFixed(1)} ms` +
            ` | through velmora-mcp: median ${median(through).toFixed(1)} ms, mean ${mean(through).toFixed(1)} ms` +
            ` | overhead: median ${median(overhead).toFixed(1)} ms, mean ${mean(overhead).toFixed(1)} ms per call`);
    }
} finally {
    for (const s of [server, standInServer]) {
        s.stdin.end();
        await new Promise((resolve) => s.on('close', resolve));
    }
    if (launchedPid) process.kill(launchedPid, 'SIGTERM');
    fs.rmSync(work, { recursive: true, force: true });
}
