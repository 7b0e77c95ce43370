// Drives the served page in headless Chromium: map and globe images load and
// are not blank, a click on France answers with France, the globe gives the
// elevation under the pointer and turns when dragged, server errors show as
// messages, nothing is fetched from elsewhere. Saves a screenshot.
//
//   node browser_check.mjs BASE_URL SCREENSHOT WEB_DIR PROFILE_DIR
import {createRequire} from 'node:module';
import {join, resolve} from 'node:path';

const [base, screenshot, webDir, profile] = process.argv.slice(2);
const {chromium} = createRequire(join(resolve(webDir), 'package.json'))('playwright-core');

let failures = 0;
async function check(what, test) {
  try {
    await test();
    console.log(`ok: ${what}`);
  } catch (error) {
    failures += 1;
    console.log(`FAIL: ${what}\n    ${String(error.message || error).split('\n').join('\n    ')}`);
  }
}
function expect(condition, message) {
  if (!condition) throw new Error(message);
}

const context = await chromium.launchPersistentContext(profile, {
  executablePath: '/usr/bin/chromium',
  headless: true,
  viewport: {width: 1280, height: 760},
  args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-background-networking', '--disable-component-update',
         '--disable-quic', '--no-first-run', '--disable-sync'],
});
const page = context.pages()[0] || (await context.newPage());
page.setDefaultTimeout(15000);
const requests = [];
const pageErrors = [];
page.on('request', (request) => requests.push(request.url()));
page.on('pageerror', (error) => pageErrors.push(error.message));

// Distinct colours (5 bits a channel) of an element's pixels: the map's
// canvas, or an image drawn into one.
const distinctColours = (selector) =>
  page.$eval(selector, (element) => {
    let data;
    if (element instanceof HTMLCanvasElement) {
      data = element.getContext('2d').getImageData(0, 0, element.width, element.height).data;
    } else {
      const canvas = document.createElement('canvas');
      canvas.width = element.naturalWidth;
      canvas.height = element.naturalHeight;
      const context2d = canvas.getContext('2d');
      context2d.drawImage(element, 0, 0);
      data = context2d.getImageData(0, 0, canvas.width, canvas.height).data;
    }
    const colours = new Set();
    for (let i = 0; i < data.length; i += 4) colours.add(((data[i] >> 3) << 10) | ((data[i + 1] >> 3) << 5) | (data[i + 2] >> 3));
    return colours.size;
  });
const globeCenter = async () => (await page.getAttribute('#globe', 'data-center')).split(',').map(Number);
const globeBox = async () => page.locator('#globe').boundingBox();

// France in the middle of the map, the globe over the Himalaya.
await page.goto(`${base}#center=2.5,46.5&zoom=4&globe=86.925,27.988&layers=world`);

await check('map and globe images load and are not blank', async () => {
  await page.waitForSelector('#map[data-status="loaded"]');
  await page.waitForSelector('#globe[data-status="loaded"]');
  const map = await distinctColours('#map .ol-layer canvas');
  const globe = await distinctColours('#globe-image');
  expect(map > 200 && globe > 200, `distinct colours: map ${map}, globe ${globe}`);
});

await check('layer switcher lists the capabilities with "world" on', async () => {
  const boxes = await page.$$eval('#layers input', (inputs) => inputs.map((input) => [input.value, input.checked]));
  const names = boxes.map(([name]) => name);
  for (const name of ['world_image', 'country_edges', 'elevation', 'world', 'political', 'countries']) {
    expect(names.includes(name), `${name} missing from ${names}`);
  }
  expect(JSON.stringify(boxes.filter(([, on]) => on)) === '[["world",true]]', `switched on: ${JSON.stringify(boxes)}`);
});

await check('a click on France shows its feature information', async () => {
  await page.click('#map', {position: {x: (await page.locator('#map').boundingBox()).width / 2, y: (await page.locator('#map').boundingBox()).height / 2}});
  await page.waitForSelector('#info-body[data-status="loaded"]');
  const text = await page.textContent('#info-body');
  expect(/country_edges/.test(text) && /France/.test(text) && /Europe/.test(text), text);
});

await check('the globe gives the elevation under the pointer (Himalaya, over 3000 m)', async () => {
  const box = await globeBox();
  await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
  await page.waitForSelector('#globe-readout[data-elevation]');
  const elevation = Number(await page.getAttribute('#globe-readout', 'data-elevation'));
  const lat = Number(await page.getAttribute('#globe-readout', 'data-lat'));
  expect(elevation > 3000 && Math.abs(lat - 28) < 1, `elevation ${elevation} at lat ${lat}: ${await page.textContent('#globe-readout')}`);
  await page.mouse.move(box.x + 3, box.y + 3);
  await page.waitForFunction(() => document.getElementById('globe-readout').textContent === 'Off the globe.');
});

await check('dragging the globe requests a new centre', async () => {
  const box = await globeBox();
  const before = await distinctColours('#globe-image');
  const firstImage = await page.$eval('#globe-image', (image) => image.src);
  await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
  await page.mouse.down();
  await page.mouse.move(box.x + box.width / 2 + 90, box.y + box.height / 2 + 30, {steps: 6});
  await page.mouse.up();
  await page.waitForSelector('#globe[data-loads="2"][data-status="loaded"]');
  const [lon, lat] = await globeCenter();
  // 90 pixels right on a globe of 169 pixels radius: about 30.5 degrees west.
  expect(Math.abs(lon - 56.4) < 1 && Math.abs(lat - 38.2) < 1, `centre ${lon}, ${lat}`);
  const asked = requests.filter((url) => url.includes('REQUEST=GetMap') && url.includes(`AUTO:42003,9001,${lon.toFixed(4)},${lat.toFixed(4)}&`));
  expect(asked.length === 1, `native GetMap at the new centre: ${asked.length} request(s)`);
  expect((await page.$eval('#globe-image', (image) => image.src)) !== firstImage && before > 200, 'the image was not replaced');
  expect((await distinctColours('#globe-image')) > 200, 'new globe image blank');
});

await check('server errors show as messages, not broken images, and clear on success', async () => {
  // The native door gets a box it refuses; the standard one an unknown layer.
  await page.route(/map_server\?.*REQUEST=GetMap/, (route) => route.continue({url: route.request().url().replace('BBOX=-', 'BBOX=-1')}));
  await page.route(/wms\?.*REQUEST=GetMap/, (route) => route.continue({url: route.request().url().replace(/LAYERS=[^&]*/, 'LAYERS=no_such_layer')}));
  await page.focus('#globe');
  await page.keyboard.press('ArrowUp');
  await page.check('#layers input[value="countries"]');
  await page.waitForSelector('#globe[data-status="error"]');
  await page.waitForSelector('#map[data-status="error"]');
  const globeError = await page.textContent('#globe-error');
  const messages = await page.textContent('#messages');
  expect(/Non symmetric BBOX/.test(globeError) && (await page.isHidden('#globe-image')), `globe: ${globeError}`);
  expect(/Map: LayerNotDefined: Layer 'no_such_layer' is not defined/.test(messages), `messages: ${messages}`);
  await page.unrouteAll();
  await page.focus('#globe');
  await page.keyboard.press('ArrowDown');
  await page.uncheck('#layers input[value="countries"]');
  await page.waitForSelector('#globe[data-status="loaded"]');
  await page.waitForSelector('#map[data-status="loaded"]');
  expect(await page.isHidden('#messages'), `messages left: ${await page.textContent('#messages')}`);
});

await check('every request went to this server and the page raised no error', async () => {
  const elsewhere = requests.filter((url) => !url.startsWith(base) && !url.startsWith('blob:'));
  expect(elsewhere.length === 0, `requests elsewhere: ${elsewhere.join(' ')}`);
  expect(pageErrors.length === 0, `page errors: ${pageErrors.join('; ')}`);
});

// A settled picture: no pointer over a control, nothing focused.
await page.mouse.move(640, 10);
await page.evaluate(() => document.activeElement?.blur());
await page.screenshot({path: screenshot, animations: 'disabled', caret: 'hide'});
await context.close();
console.log(failures === 0 ? 'all browser checks passed' : `${failures} browser check(s) failed`);
process.exit(failures === 0 ? 0 : 1);
