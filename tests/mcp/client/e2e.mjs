// velmora-mcp end to end: the official MCP TypeScript SDK client starts the
// server over stdio on the virtual desktop of scripts/desktop, negotiates,
// lists the tools and drives galculator and mousepad through them, checking the
// receipts; then a denied application and a refused screenshot come back as
// tool errors, and the audit log verifies. Applications the test launched are
// ended by process id at the end.
//
//   node e2e.mjs VELMORA_MCP VELMORA_AGENT

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';

const [serverPath, agentPath] = process.argv.slice(2);
if (!serverPath || !agentPath) {
    console.error('usage: node e2e.mjs VELMORA_MCP VELMORA_AGENT');
    process.exit(64);
}
if (!process.env.DISPLAY) {
    console.error('needs a desktop: run it under scripts/desktop');
    process.exit(1);
}

const calculator = 'galculator';
const editor = 'org.xfce.mousepad';
const entries = [calculator, editor].map((id) => `/usr/share/applications/${id}.desktop`);

// Processes GIO launched from our entries on this display, as the agent's
// launches leave them (the same rule the C++ end-to-end tests use).
function launchedApplications() {
    const found = new Set();
    for (const name of fs.readdirSync('/proc')) {
        if (!/^\d+$/.test(name)) continue;
        let environ;
        try {
            environ = fs.readFileSync(`/proc/${name}/environ`, 'latin1').split('\0');
        } catch {
            continue;
        }
        const value = (key) => environ.find((entry) => entry.startsWith(key + '='))?.slice(key.length + 1);
        if (value('DISPLAY') !== process.env.DISPLAY) continue;
        const entry = value('GIO_LAUNCHED_DESKTOP_FILE');
        const launcher = value('GIO_LAUNCHED_DESKTOP_FILE_PID');
        if (entries.includes(entry) && launcher === name) found.add(Number(name));
    }
    return found;
}

function alive(pid) {
    try {
        process.kill(pid, 0);
        return true;
    } catch {
        return false;
    }
}

async function endApplications(before) {
    const started = [...launchedApplications()].filter((pid) => !before.has(pid));
    for (const pid of started) process.kill(pid, 'SIGTERM');
    const deadline = Date.now() + 5000;
    while (started.some(alive) && Date.now() < deadline) await sleep(50);
    for (const pid of started.filter(alive)) process.kill(pid, 'SIGKILL');
    return started;
}

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

const work = fs.mkdtempSync(path.join(process.env.VELMORA_DESKTOP_DIR || os.tmpdir(), 'mcp-e2e-'));
const auditLog = path.join(work, 'audit.jsonl');
const shots = path.join(work, 'shots');
fs.mkdirSync(shots);
const configFile = path.join(work, 'velmora-mcp.json');
fs.writeFileSync(configFile, JSON.stringify({
    agent: agentPath,
    seatLease: 'e2e-lease',
    approvedApps: [calculator, editor, 'xterm'],
    deniedApps: ['xterm'],
    screenshotDir: shots,
    auditLog,
    callTimeoutSeconds: 60,
}, null, 2));

// One client with its own server process; `extra` flags go after the config.
async function connect(extra = []) {
    const transport = new StdioClientTransport({
        command: serverPath,
        args: ['--config', configFile, ...extra],
        env: process.env,  // the desktop's DISPLAY and buses, as a user's client would pass them
        stderr: 'inherit',
    });
    let negotiated = null;
    transport.setProtocolVersion = (version) => { negotiated = version; };
    const client = new Client({ name: 'velmora-e2e', version: '1.0.0' });
    await client.connect(transport);
    return { client, transport, negotiated: () => negotiated };
}

function text(result) {
    return result.content.filter((block) => block.type === 'text').map((block) => block.text).join('\n');
}

function receipt(result, index = 0) {
    const receipts = result.structuredContent?.receipts ?? [];
    assert.ok(receipts.length > index, `no receipt ${index}: ${text(result)}`);
    return receipts[index];
}

function checkReceipt(result, action, target, index = 0) {
    assert.equal(result.isError, false, text(result));
    const r = receipt(result, index);
    assert.equal(r.schema, 'velmora.native_app_runtime_receipt.v1');
    assert.equal(r.action, action);
    assert.equal(r.bundleIdentifier, target);
    assert.equal(r.succeeded, true, text(result));
    assert.match(r.binarySha256, /^[0-9a-f]{64}$/);
    assert.match(r.ts, /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$/);
    assert.equal(typeof r.postActionStructuralState.elementCount, 'number');
    return r;
}

// wait_for until it passes or `seconds` pass (each call already retries
// within the agent; this covers a slow machine).
async function waitFor(client, args, seconds) {
    const deadline = Date.now() + seconds * 1000;
    let result;
    do {
        result = await client.callTool({ name: 'wait_for', arguments: args });
        if (!result.isError) return result;
    } while (Date.now() < deadline);
    assert.fail(`wait_for ${JSON.stringify(args)} never passed: ${text(result)}`);
}

const before = launchedApplications();
let failed = false;
const connections = [];
try {
    const main = await connect();
    connections.push(main);
    const { client } = main;
    assert.equal(main.negotiated(), '2025-06-18');
    assert.equal(client.getServerVersion().name, 'velmora-mcp');
    assert.deepEqual(client.getServerCapabilities().tools, { listChanged: false });

    const { tools } = await client.listTools();
    const names = tools.map((tool) => tool.name).sort();
    assert.deepEqual(names, ['click', 'find_elements', 'focus_app', 'frontmost', 'launch_app',
        'press_keys', 'run_actions', 'screenshot', 'scroll', 'type_text', 'wait_for']);
    for (const tool of tools) {
        assert.equal(tool.inputSchema.type, 'object');
        assert.equal(tool.outputSchema.type, 'object', tool.name);
    }

    // galculator: launch, keys by title, the display's value.
    const launched = await client.callTool({ name: 'launch_app', arguments: { target: calculator } });
    checkReceipt(launched, 'launch', calculator);
    await waitFor(client, { target: calculator, selector: { role: 'AXToggleButton', title: '7' } }, 30);
    await waitFor(client, { target: calculator, selector: { role: 'AXTextArea' }, expect: { valueEquals: '0' } }, 10);

    const seven = await client.callTool({
        name: 'click',
        arguments: { target: calculator, selector: { role: 'AXToggleButton', title: '7' }, label: 'seven' },
    });
    const sevenReceipt = checkReceipt(seven, 'click', calculator);
    assert.equal(sevenReceipt.label, 'seven');
    assert.equal(sevenReceipt.frontmostTargetMatch, true);
    assert.equal(sevenReceipt.reversible, false);
    console.log('what a client sees for one click:');
    console.log(JSON.stringify(seven, null, 2));
    const eight = await client.callTool({
        name: 'click',
        arguments: { target: calculator, selector: { role: 'AXToggleButton', title: '8' } },
    });
    checkReceipt(eight, 'click', calculator);
    const shown = await waitFor(client, {
        target: calculator, selector: { role: 'AXTextArea' }, expect: { valueEquals: '78' }, includeValues: true,
    }, 10);
    const display = checkReceipt(shown, 'assert', calculator);
    assert.equal(display.queryResult[0].value, '78');

    // Context economy: a limited list with the total stated, no values.
    const keys = await client.callTool({
        name: 'find_elements',
        arguments: { target: calculator, selector: { role: 'AXToggleButton' }, maxElements: 5 },
    });
    const found = checkReceipt(keys, 'query', calculator);
    assert.equal(found.queryResult.length, 5);
    assert.ok(found.queryResultCount > 5, `only ${found.queryResultCount} keys`);
    assert.ok(found.queryResult.every((element) => !('value' in element)));
    assert.match(text(keys), new RegExp(`found ${found.queryResultCount} elements, first 5 listed`));

    // mousepad: launch, click into the text, type, read it back.
    checkReceipt(await client.callTool({ name: 'launch_app', arguments: { target: editor } }), 'launch', editor);
    await waitFor(client, { target: editor, selector: { role: 'AXTextArea' } }, 30);
    checkReceipt(await client.callTool({
        name: 'click', arguments: { target: editor, selector: { role: 'AXTextArea' } },
    }), 'click', editor);
    const typed = await client.callTool({
        name: 'type_text', arguments: { target: editor, text: 'Grüße from MCP ✓', label: 'greet' },
    });
    assert.equal(checkReceipt(typed, 'typeText', editor).frontmostTargetMatch, true);
    await waitFor(client, {
        target: editor, selector: { role: 'AXTextArea' }, expect: { valueContains: 'grüße from mcp ✓' },
    }, 10);

    // A screenshot comes back as a PNG image, scaled to the asked box.
    const shot = await client.callTool({
        name: 'screenshot', arguments: { target: editor, maxWidth: 640, maxHeight: 640 },
    });
    const shotReceipt = checkReceipt(shot, 'screenshot', editor);
    assert.ok(shotReceipt.screenshotPath.startsWith(shots + '/'), shotReceipt.screenshotPath);
    const image = shot.content.find((block) => block.type === 'image');
    assert.ok(image, 'no image content');
    assert.equal(image.mimeType, 'image/png');
    const png = Buffer.from(image.data, 'base64');
    assert.equal(png.subarray(1, 4).toString('latin1'), 'PNG');
    const size = { width: png.readUInt32BE(16), height: png.readUInt32BE(20) };
    const stated = shot.structuredContent.image;
    assert.deepEqual(size, { width: stated.width, height: stated.height });
    assert.ok(size.width <= 640 && size.height <= 640, JSON.stringify(size));
    assert.equal(stated.screenshotWidth, 1280);
    assert.equal(stated.screenshotHeight, 800);
    assert.equal(stated.scale, 0.5);
    assert.match(text(shot), /scale 0\.5: a point \(x, y\) in the image is \(x \/ scale, y \/ scale\) on the screen/);

    // A denied application: a tool error, and nothing launched.
    const denied = await client.callTool({ name: 'launch_app', arguments: { target: 'xterm' } });
    assert.equal(denied.isError, true);
    assert.equal(denied.structuredContent.error, 'consent denied for app: xterm');
    assert.equal(denied.structuredContent.receipts.length, 0);
    assert.match(text(denied), /refused: consent denied for app: xterm/);

    // Arguments that do not fit a tool are a protocol error.
    await assert.rejects(client.callTool({ name: 'click', arguments: { target: calculator } }),
        (error) => error.code === -32602 && /either "selector" or "point"/.test(error.message));

    // A second server whose configuration refuses screenshots, sharing the log.
    const refusing = await connect(['--no-screenshots']);
    connections.push(refusing);
    const refused = await refusing.client.callTool({ name: 'screenshot', arguments: { target: calculator } });
    assert.equal(refused.isError, true);
    const refusal = receipt(refused);
    assert.equal(refusal.succeeded, false);
    assert.equal(refusal.errorMessage, 'consent denied for app: screenshots not permitted by consent scope');
    assert.equal(refused.content.filter((block) => block.type === 'image').length, 0);

    for (const connection of connections.splice(0)) await connection.client.close();

    // Every call is in the audit log, and its chain holds.
    const verified = spawnSync(serverPath, ['verify-log', auditLog], { encoding: 'utf8' });
    assert.equal(verified.status, 0, verified.stderr);
    const lines = fs.readFileSync(auditLog, 'utf8').trim().split('\n').map((line) => JSON.parse(line));
    const requests = lines.filter((line) => line.event === 'request');
    assert.equal(lines.length, 2 * requests.length);
    assert.ok(requests.some((line) => line.request.targetBundleId === 'xterm'));
    console.log(verified.stdout.trim());
    console.log(`ok: ${requests.length} tool calls through velmora-mcp`);
} catch (error) {
    failed = true;
    console.error(error);
} finally {
    for (const connection of connections) await connection.client.close().catch(() => {});
    const ended = await endApplications(before);
    const lingering = ended.filter(alive);
    if (lingering.length > 0) {
        failed = true;
        console.error(`still running: ${lingering.join(' ')}`);
    }
    fs.rmSync(work, { recursive: true, force: true });
}
process.exit(failed ? 1 : 0);
