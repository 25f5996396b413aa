// Validates SARIF logs against the SARIF 2.1.0 schema (draft-04 JSON
// Schema, validated by Ajv 6, which reads that draft).
//   node validate.js LOG.sarif...
const fs = require('fs');
const Ajv = require('ajv');
const schema = require('@microsoft/jest-sarif/lib/schemas/sarif-2.1.0-rtm.5.json');

const ajv = new Ajv({ schemaId: 'auto', allErrors: true });
ajv.addMetaSchema(require('ajv/lib/refs/json-schema-draft-04.json'));
const validate = ajv.compile(schema);
let failed = 0;
for (const file of process.argv.slice(2)) {
  const log = JSON.parse(fs.readFileSync(file, 'utf8'));
  if (validate(log)) {
    console.log(`valid SARIF 2.1.0: ${file} (${log.runs[0].results.length} results)`);
  } else {
    console.error(`${file}: ${ajv.errorsText(validate.errors)}`);
    failed = 1;
  }
}
process.exit(failed);
