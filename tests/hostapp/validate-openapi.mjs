// Checks the host's OpenAPI document with tools that share no code with the
// host: the official OpenAPI 3.1 schema (through the pinned validator
// package), every Schema Object compiled as JSON Schema 2020-12 in Ajv's
// strict mode, and the rules those schemas cannot express (references that
// resolve, unique operation ids, path templates matched by path parameters).
//
// usage: node validate-openapi.mjs NODE_MODULES DOCUMENT [PROGRAM ARGS...]
//   With a program, runs it first and writes its standard output to DOCUMENT.
// Exits 0 when valid, 1 when not, 77 (skipped) when the packages are missing.
import { spawnSync } from "node:child_process";
import { existsSync, writeFileSync, readFileSync } from "node:fs";
import { join } from "node:path";
import { pathToFileURL } from "node:url";

const SKIP = 77;
const [modules, documentPath, ...program] = process.argv.slice(2);
if (!modules || !documentPath) {
  console.error("usage: node validate-openapi.mjs NODE_MODULES DOCUMENT [PROGRAM ARGS...]");
  process.exit(2);
}

const validatorEntry = join(modules, "@seriousme/openapi-schema-validator/index.js");
const ajvEntry = join(modules, "ajv/dist/2020.js");
for (const entry of [validatorEntry, ajvEntry]) {
  if (!existsSync(entry)) {
    console.log(`skipped: ${entry} is not installed (scripts/setup.sh installs it)`);
    process.exit(SKIP);
  }
}

if (program.length > 0) {
  const run = spawnSync(program[0], program.slice(1), { encoding: "utf8", maxBuffer: 64 << 20 });
  if (run.error || run.status !== 0) {
    console.error(`${program.join(" ")} failed (${run.error ?? "exit " + run.status}):`);
    console.error(run.stderr);
    process.exit(1);
  }
  writeFileSync(documentPath, run.stdout);
}

const { Validator } = await import(pathToFileURL(validatorEntry).href);
const Ajv2020 = (await import(pathToFileURL(ajvEntry).href)).default;

const problems = [];
let document;
try {
  document = JSON.parse(readFileSync(documentPath, "utf8"));
} catch (error) {
  console.error(`${documentPath}: not JSON: ${error.message}`);
  process.exit(1);
}

// 1. The official schema of the document's structure.
const validator = new Validator();
const result = await validator.validate(structuredClone(document));
if (!result.valid) {
  problems.push(`not a valid OpenAPI document: ${JSON.stringify(result.errors, null, 2)}`);
} else if (validator.version !== "3.1") {
  problems.push(`OpenAPI version ${validator.version}, expected 3.1`);
}

// 2. References: every one must resolve inside the document.
function resolve(pointer) {
  if (!pointer.startsWith("#/")) return undefined;
  let node = document;
  for (const raw of pointer.slice(2).split("/")) {
    const key = decodeURIComponent(raw).replaceAll("~1", "/").replaceAll("~0", "~");
    if (node === null || typeof node !== "object" || !(key in node)) return undefined;
    node = node[key];
  }
  return node;
}
let references = 0;
(function walk(node, where) {
  if (Array.isArray(node)) {
    node.forEach((element, index) => walk(element, `${where}/${index}`));
  } else if (node !== null && typeof node === "object") {
    for (const [key, value] of Object.entries(node)) {
      if (key === "$ref" && typeof value === "string") {
        ++references;
        if (resolve(value) === undefined) problems.push(`${where}: $ref ${value} does not resolve`);
      } else {
        walk(value, `${where}/${key}`);
      }
    }
  }
})(document, "#");

// 3. Operations: unique ids; a path's template names exactly its path
//    parameters, each required.
const methods = ["get", "put", "post", "delete", "options", "head", "patch", "trace"];
const operationIds = new Set();
let operations = 0;
for (const [path, item] of Object.entries(document.paths ?? {})) {
  const templated = new Set([...path.matchAll(/\{([^}]*)\}/g)].map((match) => match[1]));
  for (const method of methods.filter((m) => item[m])) {
    const operation = item[method];
    ++operations;
    if (operationIds.has(operation.operationId)) {
      problems.push(`operationId ${operation.operationId} is used twice`);
    }
    operationIds.add(operation.operationId);
    const parameters = [...(item.parameters ?? []), ...(operation.parameters ?? [])].map(
      (p) => (p.$ref ? resolve(p.$ref) : p) ?? {},
    );
    const seen = new Set();
    for (const parameter of parameters) {
      const key = `${parameter.in} ${parameter.name}`;
      if (seen.has(key)) problems.push(`${method} ${path}: parameter ${key} twice`);
      seen.add(key);
      if (parameter.in === "path" && parameter.required !== true) {
        problems.push(`${method} ${path}: path parameter ${parameter.name} not required`);
      }
    }
    const inPath = new Set(parameters.filter((p) => p.in === "path").map((p) => p.name));
    const missing = [...templated].filter((name) => !inPath.has(name));
    const extra = [...inPath].filter((name) => !templated.has(name));
    if (missing.length || extra.length) {
      problems.push(`${method} ${path}: template/path parameters differ (${missing} | ${extra})`);
    }
  }
}

// 4. Every Schema Object is valid JSON Schema 2020-12 with no unknown
//    keyword, and its references to components reach a compiled schema.
const componentsId = "urn:openapi:components";
function rewrite(node) {
  if (Array.isArray(node)) return node.map(rewrite);
  if (node === null || typeof node !== "object") return node;
  const copy = {};
  for (const [key, value] of Object.entries(node)) {
    copy[key] =
      key === "$ref" && typeof value === "string" && value.startsWith("#/components/schemas/")
        ? `${componentsId}#/$defs/${value.slice("#/components/schemas/".length)}`
        : rewrite(value);
  }
  return copy;
}
const ajv = new Ajv2020({ strict: true, allowUnionTypes: true, allErrors: true });
// The formats OpenAPI registers for numbers, and the one used for URIs.
for (const format of ["int8", "int16", "int32", "int64", "uint8", "uint16", "uint32", "uint64"]) {
  ajv.addFormat(format, { type: "number", validate: (n) => Number.isInteger(n) });
}
for (const format of ["float", "double"]) {
  ajv.addFormat(format, { type: "number", validate: () => true });
}
ajv.addFormat("uri-reference", true);
const schemas = document.components?.schemas ?? {};
let compiled = 0;
function compile(schema, where) {
  try {
    ajv.compile(schema);
    ++compiled;
  } catch (error) {
    problems.push(`${where}: ${error.message}`);
  }
}
try {
  ajv.addSchema({ $id: componentsId, $defs: rewrite(schemas) });
} catch (error) {
  problems.push(`components/schemas: ${error.message}`);
}
for (const name of Object.keys(schemas)) {
  compile({ $ref: `${componentsId}#/$defs/${name}` }, `#/components/schemas/${name}`);
}
(function walk(node, where) {
  if (Array.isArray(node)) {
    node.forEach((element, index) => walk(element, `${where}/${index}`));
  } else if (node !== null && typeof node === "object") {
    for (const [key, value] of Object.entries(node)) {
      if (key === "schema" && value !== null && typeof value === "object") {
        compile(rewrite(value), `${where}/schema`);
      } else {
        walk(value, `${where}/${key}`);
      }
    }
  }
})({ paths: document.paths, responses: document.components?.responses }, "#");

if (problems.length > 0) {
  console.error(problems.join("\n"));
  console.error(`${documentPath}: ${problems.length} problem(s)`);
  process.exit(1);
}
console.log(
  `${documentPath}: valid OpenAPI ${document.openapi}; ${operations} operations, ` +
    `${Object.keys(schemas).length} component schemas, ${compiled} schemas compiled, ` +
    `${references} references resolved`,
);
