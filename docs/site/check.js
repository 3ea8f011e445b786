// Looks at every page of the site in headless Chromium, wide and light, then narrow and dark: no error of a script, no
// request that fails, nothing wider than the screen, no finding of axe-core; and the search finds what it should.
//   node check.js SITE    with puppeteer-core and axe-core in a node_modules beside this file or above it
'use strict';
const fs = require('node:fs');
const http = require('node:http');
const path = require('node:path');
const puppeteer = require('puppeteer-core');

const axe = fs.readFileSync(require.resolve('axe-core/axe.min.js'), 'utf8');
const site = path.resolve(process.argv[2]);
const types = {'.html': 'text/html', '.css': 'text/css', '.js': 'text/javascript', '.svg': 'image/svg+xml',
    '.json': 'application/json', '.wasm': 'application/wasm'};
const faults = [];

function serve(request, response) {
    const file = path.join(site, decodeURIComponent(new URL(request.url, 'http://localhost').pathname));
    fs.readFile(file, (error, data) => {
        response.writeHead(error ? 404 : 200, {'Content-Type': types[path.extname(file)] ?? 'application/octet-stream'});
        response.end(data);
    });
}

function pages(folder = site) {
    return fs.readdirSync(folder, {withFileTypes: true}).flatMap(entry => {
        const file = path.join(folder, entry.name);
        if (entry.isDirectory())
            return entry.name === 'pagefind' ? [] : pages(file);
        return file.endsWith('.html') ? [path.relative(site, file)] : [];
    });
}

async function look(tab, root, name, mode) {
    const fault = text => faults.push(`${name} (${mode}): ${text}`);
    const said = message => message.type() === 'error' && fault(message.text());
    const failed = request => fault(`${request.url()} fails`);
    tab.on('console', said).on('pageerror', fault).on('requestfailed', failed);
    await tab.goto(root + name, {waitUntil: 'load'});
    const width = await tab.evaluate(() => document.scrollingElement.scrollWidth - innerWidth);
    if (width > 0)
        fault(`${width} pixels wider than the screen`);
    await tab.evaluate(axe);
    const found = await tab.evaluate(() => window.axe.run());
    for (const violation of found.violations)
        fault(`${violation.id}: ${violation.help}: ${violation.nodes[0].html.slice(0, 200)}`);
    tab.off('console', said).off('pageerror', fault).off('requestfailed', failed);
}

// What is typed leads, with the Enter key, to a place of the site that is then seen.
async function search(tab, root, from, text, wanted) {
    await tab.goto(root + from);
    await tab.type('#query', text);
    try {
        if (wanted === null) { // the words of a page, not a name
            await tab.waitForSelector('#results a mark', {timeout: 20000});
            return;
        }
        await tab.waitForSelector('#results a', {timeout: 20000});
        await tab.keyboard.press('Enter');
        await tab.waitForFunction(end => location.href.endsWith(end), {timeout: 20000}, wanted);
        const seen = await tab.waitForFunction(() => {
            const place = document.querySelector(':target')?.getBoundingClientRect();
            return place && place.top >= 0 && place.bottom <= innerHeight;
        }, {timeout: 20000});
        await seen.dispose();
    } catch (error) {
        faults.push(`search for ${text} from ${from}: ${error.message}; at ${tab.url()}`);
    }
}

async function main() {
    const server = http.createServer(serve);
    await new Promise(listening => server.listen(0, '127.0.0.1', listening));
    const root = `http://127.0.0.1:${server.address().port}/`;
    const browser = await puppeteer.launch({executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
        args: ['--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage']});
    const tab = await browser.newPage();
    const all = pages();
    for (const [mode, scheme, viewport] of [['wide, light', 'light', {width: 1280, height: 900}],
        ['narrow, dark', 'dark', {width: 360, height: 740, isMobile: true, hasTouch: true}]]) {
        await tab.emulateMediaFeatures([{name: 'prefers-color-scheme', value: scheme}]);
        await tab.setViewport(viewport);
        for (const name of all)
            await look(tab, root, name, mode);
    }
    await tab.setViewport({width: 1280, height: 900});
    await search(tab, root, 'index.html', 'VYX_SemTimedWait', 'reference/sync.html#VYX_SemTimedWait');
    await search(tab, root, 'guides/tree.html', 'vyx_wait_timeout', 'reference/msg.html#VYX_WAIT_TIMEOUT');
    await search(tab, root, 'reference/net.html', 'rebuilding a table', null);
    await browser.close();
    server.close();
    console.log(faults.join('\n'));
    console.log(`${all.length} pages in two modes, 3 searches, ${faults.length} faults`);
    process.exitCode = faults.length === 0 && all.length > 0 ? 0 : 1;
}

main();
