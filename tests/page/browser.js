// Opens each page of a folder in a headless browser, as telephones, desks and paper have it, in
// light and in dark, and looks for what must not be: node browser.js PAGES PROFILE [SHOTS]
'use strict';
const fs = require('fs');
const path = require('path');
const { pathToFileURL } = require('url');
const { chromium } = require('playwright-core');
const axe = require('axe-core');

const [pages, profile, shots] = process.argv.slice(2);
const widths = [390, 1280];
const schemes = ['light', 'dark'];
const paperWidth = 680; // A4 without its margins, in pixels of CSS

// In the page: what does not fit, and what cannot be read. Returns sentences.
function lookAtLayout() {
  const found = [];
  const root = document.documentElement;
  if (root.scrollWidth > root.clientWidth) {
    found.push(`it scrolls sideways: ${root.scrollWidth} of ${root.clientWidth} pixels`);
  }
  const name = (element) => `${element.tagName} "${element.textContent.slice(0, 40)}"`;
  for (const element of document.body.querySelectorAll('*')) {
    const box = element.getBoundingClientRect();
    if (box.left < -1 || box.right > root.clientWidth + 1) found.push(`${name(element)} sticks out`);
    if (element.ownerSVGElement) continue;
    if (getComputedStyle(element).overflow !== 'visible' && element.tagName !== 'svg' &&
        (element.scrollWidth > element.clientWidth || element.scrollHeight > element.clientHeight + 1)) {
      found.push(`${name(element)} is cut`);
    }
  }
  const channels = (color) => color.match(/[\d.]+/g).slice(0, 3).map(Number);
  const luminance = (color) => {
    const [r, g, b] = channels(color).map((c) => {
      const part = c / 255;
      return part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4;
    });
    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
  };
  const contrast = (a, b) => {
    const [low, high] = [luminance(a), luminance(b)].sort((x, y) => x - y);
    return (high + 0.05) / (low + 0.05);
  };
  const paper = getComputedStyle(document.body).backgroundColor;
  for (const svg of document.querySelectorAll('svg')) {
    const frame = svg.getBoundingClientRect();
    const texts = [...svg.querySelectorAll('text')].map((text) => [text, text.getBoundingClientRect()]);
    const down = svg.querySelector('.down');
    texts.forEach(([text, box], i) => {
      if (box.left < frame.left - 1 || box.right > frame.right + 1 || box.top < frame.top - 1 ||
          box.bottom > frame.bottom + 1) {
        found.push(`${name(text)} leaves its drawing: ${[box.left, box.top, box.right, box.bottom]}`);
      }
      for (const [other, its] of texts.slice(i + 1)) {
        if (box.left < its.right && its.left < box.right && box.top < its.bottom - 2 && its.top < box.bottom - 2) {
          found.push(`${name(text)} and ${name(other)} lie on each other`);
        }
      }
      // What is written in another color within it counts, too.
      const colors = [text, ...text.querySelectorAll('tspan')].map((one) => getComputedStyle(one).fill);
      const behind = down ? [paper, getComputedStyle(down).fill] : [paper];
      for (const color of behind) {
        const ratio = Math.min(...colors.map((one) => contrast(one, color)));
        if (ratio < 4.5) found.push(`${name(text)} has a contrast of ${ratio.toFixed(2)} on ${color}`);
      }
    });
    for (const bar of svg.querySelectorAll('.bar')) {
      const ratio = contrast(getComputedStyle(bar).fill, paper);
      if (ratio < 3) found.push(`a bar has a contrast of ${ratio.toFixed(2)}`);
    }
  }
  return found;
}

async function lookAt(context, file) {
  const name = path.basename(file, '.html');
  const url = pathToFileURL(file).href;
  const page = await context.newPage();
  const found = [];
  let where = '';
  const tell = (text) => found.push(`${name}${where}: ${text}`);
  page.on('console', (message) => tell(`the console says: ${message.text()}`));
  page.on('pageerror', (error) => tell(`a script failed: ${error}`));
  page.on('request', (request) => request.url() === url || tell(`it asks for ${request.url()}`));
  page.on('dialog', (dialog) => { tell(`it opens a dialog: ${dialog.message()}`); dialog.dismiss(); });
  for (const width of widths) {
    await page.setViewportSize({ width, height: 844 });
    await page.goto(url);
    if (await page.locator('script, img, iframe, link, object').count()) tell('it has what loads or runs');
    for (const scheme of schemes) {
      where = ` at ${width} pixels, ${scheme}`;
      await page.emulateMedia({ colorScheme: scheme, media: 'screen' });
      const picture = (more) => `${shots}/${name}-${width}-${scheme}${more}.png`;
      if (shots) await page.screenshot({ path: picture(''), fullPage: true });
      await page.evaluate(() => document.querySelectorAll('details').forEach((one) => { one.open = true; }));
      (await page.evaluate(lookAtLayout)).forEach(tell);
      await page.evaluate(axe.source);
      const { violations } = await page.evaluate(() => window.axe.run(document, { resultTypes: ['violations'] }));
      for (const one of violations) {
        tell(`axe: ${one.id}: ${one.help}: ${one.nodes.map((node) => node.html.slice(0, 120)).join(' | ')}`);
      }
      if (shots) await page.screenshot({ path: picture('-open'), fullPage: true });
      await page.evaluate(() => document.querySelectorAll('details').forEach((one) => { one.open = false; }));
    }
  }
  where = ' on paper';
  // A dark desk's paper is white, too.
  await page.emulateMedia({ colorScheme: 'dark', media: 'print' });
  await page.setViewportSize({ width: paperWidth, height: 960 });
  (await page.evaluate(lookAtLayout)).forEach(tell);
  if (shots) await page.pdf({ path: `${shots}/${name}.pdf`, format: 'A4', preferCSSPageSize: true });
  await page.close();
  return found;
}

async function main() {
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: '/usr/bin/chromium',
    headless: true,
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  });
  const found = [];
  const files = fs.readdirSync(pages).filter((file) => file.endsWith('.html')).sort();
  for (const file of files) found.push(...await lookAt(context, path.join(pages, file)));
  await context.close();
  found.forEach((text) => console.log(`FAILED ${text}`));
  console.log(`looked at ${files.length} pages, each at ${widths.join(' and ')} pixels, ` +
    `${schemes.join(' and ')}, and on paper: ${found.length} findings`);
  return found.length === 0 && files.length > 0 ? 0 : 1;
}

main().then((status) => process.exit(status), (error) => { console.error(error); process.exit(1); });
