// Headless Chromium for the tests with a browser.
import { mkdtempSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

// Runs `work` with a browser of its own. `modules` is a folder in which package.json's dependencies are installed.
export async function withChromium(modules, work) {
    const { chromium } = createRequire(join(modules, 'package.json'))('playwright-core');
    const profile = mkdtempSync(join(tmpdir(), 'muxora-chromium-'));
    let browser;
    try {
        browser = await chromium.launchPersistentContext(profile, {
            executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
            // The driver's own word for headless mode is of an older Chromium.
            ignoreDefaultArgs: ['--headless', '--headless=old'],
            headless: true,
            args: ['--headless=new', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
                '--disable-background-networking', '--disable-component-update', '--disable-sync',
                '--autoplay-policy=no-user-gesture-required'],
        });
        await work(browser);
    } finally {
        await browser?.close();
        rmSync(profile, { recursive: true, force: true });
    }
}
