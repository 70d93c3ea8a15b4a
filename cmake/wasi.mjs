// Runs a WebAssembly program under node: node wasi.mjs PROGRAM [ARGUMENT...]
import { readFileSync } from 'node:fs';
import { WASI } from 'node:wasi';

const [program, ...args] = process.argv.slice(2);
const wasi = new WASI({ version: 'preview1', args: [program, ...args], env: process.env, preopens: { '/': '/' } });
const module = await WebAssembly.compile(readFileSync(program));
process.exitCode = wasi.start(await WebAssembly.instantiate(module, { wasi_snapshot_preview1: wasi.wasiImport }));
