// query.mjs MODULES: runs the statements of standard input, a JSON list, in one DuckDB; prints the rows of each as JSON.
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';

const { DuckDBInstance } = createRequire(`${process.argv[2]}/`)('@duckdb/node-api');
const connection = await (await DuckDBInstance.create()).connect();
const results = [];
for (const statement of JSON.parse(readFileSync(0, 'utf8'))) {
    results.push((await connection.runAndReadAll(statement)).getRows());
}
console.log(JSON.stringify(results, (_, value) => (typeof value === 'bigint' ? Number(value) : value)));
