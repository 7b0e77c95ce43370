// Bundles the page into static files: dist/ (or the directory given) gets
// index.html, app.js and app.css with OpenLayers inside; nothing is fetched
// by the page at run time but the map server's own answers.
import {build} from 'esbuild';
import {copyFileSync, mkdirSync, rmSync} from 'node:fs';
import {dirname, join, resolve} from 'node:path';
import {fileURLToPath} from 'node:url';

const here = dirname(fileURLToPath(import.meta.url));
const out = resolve(process.argv[2] || join(here, 'dist'));
rmSync(out, {recursive: true, force: true});
mkdirSync(out, {recursive: true});
await build({
  entryPoints: {app: join(here, 'src/main.js')},
  bundle: true,
  minify: true,
  sourcemap: true,
  format: 'iife',
  target: ['chrome100', 'firefox100', 'safari15'],
  outdir: out,
  logLevel: 'warning',
});
copyFileSync(join(here, 'src/index.html'), join(out, 'index.html'));
console.log(`web page built into ${out}`);
