// SPDX-License-Identifier: BSD-3-Clause
//
// node run.mjs PROGRAM.wasm [ARGUMENT...]: runs a program for WebAssembly in this folder.
import {readFile} from 'node:fs/promises';
import {WASI} from 'node:wasi';

const args = process.argv.slice(2);
const wasi = new WASI({version: 'preview1', args, env: process.env, preopens: {'.': '.'}, returnOnExit: true});
const module = await WebAssembly.compile(await readFile(args[0]));
process.exitCode = wasi.start(await WebAssembly.instantiate(module, wasi.getImportObject()));
