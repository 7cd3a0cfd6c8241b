// SPDX-License-Identifier: BSD-3-Clause
//
// Questions to a worker and answers from it: {id, call, parts} there, {id, answer or error} back.

/** What was said against a request; `subject` names the parameter or picture. */
export class Refusal extends Error {
  constructor(status, subject, message) {
    super(message);
    this.status = status;
    this.subject = subject;
  }
}

/** A function (call, ...parts) that promises a worker's answer, to whom buffers go over; unstarted is said where it cannot run. */
export function callsOf(worker, unstarted) {
  const waiting = new Map();
  let last = 0;
  worker.addEventListener('message', ({data: {id, answer, error}}) => {
    const {resolve, reject} = waiting.get(id);
    waiting.delete(id);
    if (error) reject(new Refusal(400, error.subject, error.message)); else resolve(answer);
  });
  worker.addEventListener('error', () => {
    for (const {reject} of waiting.values()) reject(new Refusal(0, 'server', unstarted));
    waiting.clear();
  });
  return (call, ...parts) => new Promise((resolve, reject) => {
    waiting.set(++last, {resolve, reject});
    worker.postMessage({id: last, call, parts}, parts.filter((part) => part instanceof ArrayBuffer));
  });
}

/** In a worker: answers by the functions of an object. */
export function answerBy(calls) {
  addEventListener('message', async ({data: {id, call, parts}}) => {
    try {
      postMessage({id, answer: await calls[call](...parts)});
    } catch (error) {
      postMessage({id, error: {subject: error.subject ?? 'movie', message: error.message}});
    }
  });
}
