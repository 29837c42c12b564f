// Drives the gateway with the vendors' own client libraries. Behind it stands a runtime played here:
// an OpenAI-compatible server whose answer is written in the last message of a request.
//
//   node gateway_clients.mjs GATEWAY_HOST FOLDER_OF_LIBRARIES
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { createServer } from 'node:http';
import { createRequire } from 'node:module';
import { once } from 'node:events';
import { createInterface } from 'node:readline';

const [host, libraries] = process.argv.slice(2);
const require = createRequire(libraries + '/');
const { OpenAI } = require('openai');
const { Anthropic } = require('@anthropic-ai/sdk');

// ---- the runtime --------------------------------------------------------------------------------

const waiting = []; // answers that a case holds back
let lastRequest;

function answerTo(request) {
  const last = request.messages.at(-1);
  if (last.role === 'tool') return { content: `The tool said ${last.content}.` };
  if (request.tools && last.content.startsWith('CALL')) {
    const [{ function: { name } }] = request.tools;
    return { content: null, tool_calls: [
      { id: 'call_1', type: 'function', function: { name, arguments: '{"city":"Paris"}' } }] };
  }
  return { content: `You said ${last.content}` };
}

const runtime = createServer(async (request, response) => {
  let body = '';
  for await (const piece of request) body += piece;
  const asked = lastRequest = JSON.parse(body);
  const text = asked.messages.at(-1).content;
  if (text === 'WAIT') await new Promise(resume => waiting.push(resume));
  if (text === 'DROP') return request.socket.destroy();
  const failed = text === 'FAIL';
  response.writeHead(failed ? 500 : 200, { 'Content-Type': 'application/json' });
  const message = answerTo(asked);
  response.end(JSON.stringify(failed ? { error: { message: 'out of memory' } }
    : text === 'ODD' ? { choices: [] }
    : { id: 'chatcmpl-1', object: 'chat.completion', created: 1, model: asked.model,
      choices: [{ index: 0, finish_reason: message.tool_calls ? 'tool_calls' : 'stop',
        message: { role: 'assistant', ...message } }],
      usage: { prompt_tokens: 5, completion_tokens: 6, total_tokens: 11 } }));
});
runtime.listen(0, '127.0.0.1');
await once(runtime, 'listening');

const gateway = spawn(host, [`http://127.0.0.1:${runtime.address().port}/v1`, 'small', 'large'],
  { stdio: ['pipe', 'pipe', 'inherit'] });
const [line] = await once(createInterface(gateway.stdout), 'line');
const { url, key, keyWithoutLocal } = JSON.parse(line);

// ---- the cases ----------------------------------------------------------------------------------

const openAI = (options = {}) => new OpenAI(
  { baseURL: `${url}/openai/v1`, apiKey: key, maxRetries: 0, ...options });
const anthropic = (options = {}) => new Anthropic(
  { baseURL: `${url}/anthropic`, authToken: key, apiKey: null, maxRetries: 0, ...options });
const ask = content => [{ role: 'user', content }];
const parameters = { type: 'object', properties: { city: { type: 'string' } } };
const chatTools = [{ type: 'function', function: { name: 'weather', parameters } }];
const messageTools = [{ name: 'weather', input_schema: parameters }];
const responseTools = [{ type: 'function', name: 'weather', parameters, strict: false }];
const collected = async stream => {
  const all = [];
  for await (const each of stream) all.push(each);
  return all;
};

async function refused(promise, type, status, code) {
  const error = await promise.then(() => assert.fail('it was answered'), error => error);
  assert.ok(error instanceof type, `${error.constructor.name}: ${error.message}`);
  assert.equal(error.status, status);
  assert.equal((error.error.error ?? error.error).code, code);
}

const cases = {
  async 'openai: chat completions'() {
    const { data, response } = await openAI().chat.completions
      .create({ model: 'gpt-5', messages: ask('Hi'), max_completion_tokens: 9 }).withResponse();
    assert.equal(data.choices[0].message.content, 'You said Hi');
    assert.equal(data.model, 'gpt-5');
    assert.equal(data.usage.total_tokens, 11);
    assert.equal(response.headers.get('x-vantrell-model'), 'small');
    assert.deepEqual([lastRequest.model, lastRequest.max_tokens, lastRequest.stream],
      ['small', 9, false]);
  },
  async 'openai: chat completions, /xai and a local model'() {
    await openAI({ baseURL: `${url}/xai/v1` }).chat.completions
      .create({ model: 'local/large', messages: ask('Hi') });
    assert.equal(lastRequest.model, 'large');
  },
  async 'openai: chat completions as a stream'() {
    const chunks = await collected(await openAI().chat.completions
      .create({ model: 'm', messages: ask('Hi'), stream: true }));
    assert.equal(chunks.length, 1);
    assert.equal(chunks[0].choices[0].delta.content, 'You said Hi');
    const final = await openAI().chat.completions
      .stream({ model: 'm', messages: ask('CALL'), tools: chatTools }).finalChatCompletion();
    assert.equal(final.choices[0].message.tool_calls[0].function.arguments, '{"city":"Paris"}');
  },
  async 'openai: a tool of chat completions, there and back'() {
    const messages = ask('CALL');
    const { choices: [{ message }] } = await openAI().chat.completions
      .create({ model: 'm', messages, tools: chatTools });
    assert.equal(message.tool_calls[0].function.name, 'weather');
    messages.push(message, { role: 'tool', tool_call_id: message.tool_calls[0].id, content: 'rain' });
    const after = await openAI().chat.completions.create({ model: 'm', messages, tools: chatTools });
    assert.equal(after.choices[0].message.content, 'The tool said rain.');
    assert.equal(lastRequest.messages[1].tool_calls[0].id, 'call_1');
  },
  async 'openai: responses'() {
    const response = await openAI().responses
      .create({ model: 'gpt-5', instructions: 'Be brief.', input: 'Hi' });
    assert.equal(response.output_text, 'You said Hi');
    assert.equal(response.status, 'completed');
    assert.equal(response.usage.total_tokens, 11);
    assert.deepEqual(lastRequest.messages[0], { role: 'system', content: 'Be brief.' });
  },
  async 'openai: responses as a stream'() {
    const events = await collected(await openAI().responses
      .create({ model: 'm', input: ask('Hi'), stream: true }));
    assert.deepEqual(events.map(each => each.type),
      ['response.created', 'response.output_text.delta', 'response.completed']);
    assert.equal(events[1].delta, 'You said Hi');
    assert.equal(events[2].response.output[0].content[0].text, 'You said Hi');
  },
  async 'openai: a tool of responses, there and back'() {
    const input = ask('CALL');
    const { output } = await openAI().responses.create({ model: 'm', input, tools: responseTools });
    assert.equal(output[0].type, 'function_call');
    input.push(output[0], { type: 'function_call_output', call_id: output[0].call_id, output: 'rain' });
    const after = await openAI().responses.create({ model: 'm', input, tools: responseTools });
    assert.equal(after.output_text, 'The tool said rain.');
  },
  async 'openai: models'() {
    const models = await collected(await openAI().models.list());
    assert.deepEqual(models.map(each => each.id), ['local/small', 'local/large']);
  },
  async 'openai: each error is the typed one'() {
    const create = (content, client = openAI()) =>
      client.chat.completions.create({ model: 'm', messages: ask(content) });
    await refused(create([{ type: 'image_url', image_url: { url: 'data:' } }]),
      OpenAI.BadRequestError, 400, 'text_only');
    await refused(openAI().chat.completions.create({ model: 'm', messages: [] }),
      OpenAI.BadRequestError, 400, 'invalid_messages');
    await refused(openAI().responses.create({ model: 'm', input: [] }),
      OpenAI.BadRequestError, 400, 'invalid_input');
    await refused(create('x'.repeat(1_048_577)), OpenAI.BadRequestError, 400, 'bad_request');
    await refused(create('Hi', openAI({ apiKey: 'vtl_wrong' })),
      OpenAI.AuthenticationError, 401, 'invalid_site_key');
    await refused(create('Hi', openAI({ apiKey: keyWithoutLocal })),
      OpenAI.PermissionDeniedError, 403, 'local_provider_not_allowed');
    await refused(create('Hi', openAI({ defaultHeaders: { Origin: 'https://a.invalid' } })),
      OpenAI.PermissionDeniedError, 403, 'browser_clients_disabled');
    await refused(openAI().embeddings.create({ model: 'm', input: 'x' }),
      OpenAI.NotFoundError, 404, 'not_found');
    await refused(create('FAIL'), OpenAI.InternalServerError, 502, 'local_runtime_rejected_request');
    await refused(create('ODD'), OpenAI.InternalServerError, 502, 'invalid_local_runtime_response');
    await refused(create('DROP'), OpenAI.InternalServerError, 503, 'local_runtime_unavailable');
  },
  async 'openai: a third request at once is refused'() {
    const first = [1, 2].map(() =>
      openAI().chat.completions.create({ model: 'm', messages: ask('WAIT') }));
    while (waiting.length < 2) await new Promise(setImmediate);
    await refused(openAI().models.list(), OpenAI.RateLimitError, 429, 'local_runtime_busy');
    await refused(anthropic().models.list(), Anthropic.RateLimitError, 429, 'local_runtime_busy');
    waiting.splice(0).forEach(resume => resume());
    await Promise.all(first);
  },
  async 'anthropic: messages'() {
    const message = await anthropic().messages
      .create({ model: 'claude', max_tokens: 9, system: 'Be brief.', messages: ask('Hi') });
    assert.deepEqual(message.content, [{ type: 'text', text: 'You said Hi' }]);
    assert.deepEqual([message.model, message.stop_reason], ['claude', 'end_turn']);
    assert.deepEqual(message.usage, { input_tokens: 5, output_tokens: 6 });
    await anthropic({ authToken: null, apiKey: key }).messages
      .create({ model: 'local/large', max_tokens: 9, messages: ask('Hi') });
    assert.deepEqual([lastRequest.model, lastRequest.max_tokens], ['large', 9]);
  },
  async 'anthropic: messages as a stream'() {
    const stream = anthropic().messages
      .stream({ model: 'm', max_tokens: 9, messages: ask('Hi') });
    let text = '';
    stream.on('text', piece => { text += piece; });
    const final = await stream.finalMessage();
    assert.equal(text, 'You said Hi');
    assert.deepEqual([final.stop_reason, final.usage.input_tokens, final.usage.output_tokens],
      ['end_turn', 5, 6]);
  },
  async 'anthropic: a tool, there and back, as a stream too'() {
    const messages = ask('CALL');
    const options = { model: 'm', max_tokens: 9, tools: messageTools, messages };
    const call = await anthropic().messages.create(options);
    assert.equal(call.stop_reason, 'tool_use');
    const streamed = await anthropic().messages.stream(options).finalMessage();
    assert.deepEqual(streamed.content, call.content);
    assert.deepEqual(call.content,
      [{ type: 'tool_use', id: 'call_1', name: 'weather', input: { city: 'Paris' } }]);
    messages.push({ role: 'assistant', content: call.content },
      { role: 'user', content: [{ type: 'tool_result', tool_use_id: 'call_1', content: 'rain' }] });
    const after = await anthropic().messages.create(options);
    assert.equal(after.content[0].text, 'The tool said rain.');
    assert.equal(lastRequest.messages[1].tool_calls[0].function.arguments, '{"city":"Paris"}');
  },
  async 'anthropic: models'() {
    const models = await collected(await anthropic().models.list());
    assert.deepEqual(models.map(each => each.id), ['local/small', 'local/large']);
  },
  async 'anthropic: each error is the typed one'() {
    const create = (content, client = anthropic()) =>
      client.messages.create({ model: 'm', max_tokens: 9, messages: ask(content) });
    const image = { type: 'image', source: { type: 'base64', media_type: 'image/png', data: '' } };
    await refused(create([image]), Anthropic.BadRequestError, 400, 'text_only');
    await refused(anthropic().messages.create({ model: 'm', max_tokens: 9, messages: [] }),
      Anthropic.BadRequestError, 400, 'invalid_messages');
    await refused(create('Hi', anthropic({ authToken: 'vtl_wrong' })),
      Anthropic.AuthenticationError, 401, 'invalid_site_key');
    await refused(create('Hi', anthropic({ authToken: keyWithoutLocal })),
      Anthropic.PermissionDeniedError, 403, 'local_provider_not_allowed');
    await refused(anthropic().messages.countTokens({ model: 'm', messages: ask('Hi') }),
      Anthropic.NotFoundError, 404, 'not_found');
    await refused(create('FAIL'), Anthropic.InternalServerError, 502,
      'local_runtime_rejected_request');
    await refused(create('DROP'), Anthropic.InternalServerError, 503, 'local_runtime_unavailable');
  },
};

let failures = 0;
for (const [name, run] of Object.entries(cases)) {
  try {
    await run();
    console.log(`passed  gateway: ${name}`);
  } catch (error) {
    ++failures;
    console.log(`FAILED  gateway: ${name}\n${error.stack}`);
  }
}
gateway.stdin.end();
const [status] = await once(gateway, 'exit');
assert.equal(status, 0);
runtime.close();
runtime.closeAllConnections();
process.exitCode = failures ? 1 : 0;
