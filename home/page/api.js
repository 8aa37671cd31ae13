// Asks the server, and follows its events.

let token = "";

export class api_error extends Error {
  constructor(code, text, status) {
    super(text);
    this.code = code;
    this.status = status;
  }
}

// Called with each 401 of a session that has ended.
let logged_out = () => {};
export const on_logged_out = (call) => (logged_out = call);

async function send(method, path, body) {
  const headers = body === undefined ? {} : { "Content-Type": "application/json", "X-Appident-Token": token };
  let answer;
  try {
    answer = await fetch(`/api/v1/${path}`, {
      method,
      headers,
      body: body === undefined ? undefined : JSON.stringify(body),
      signal: AbortSignal.timeout(20000),
    });
  } catch {
    throw new api_error("no_connection", "", 0);
  }
  const text = await answer.text();
  let data = null;
  try {
    data = text ? JSON.parse(text) : {};
  } catch {
    throw new api_error("no_sense", text.slice(0, 80), answer.status);
  }
  if (answer.ok) return data;
  const { code = "no_sense", text: said = "" } = data.error || {};
  if (code === "not_logged_in") logged_out();
  throw new api_error(code, said, answer.status);
}

function keep_token(session) {
  token = session.token || "";
  return session;
}

export const get = (path) => send("GET", path);
export const put = (path, body) => send("PUT", path, body);
export const post = (path, body) => send("POST", path, body);
export const remove = (path) => send("DELETE", path, {});
export const get_session = async () => keep_token(await get("session"));
export const login = async (name, password) => keep_token(await post("login", { name, password }));

const kinds = ["session", "alert", "device", "gap", "now", "status"];
const poll_seconds = 15;

// Calls `hint(kind)` when something may have changed: by the server's events, or every 15 seconds with "all" while there are none.
// `connected(yes)` says whether events come. Returns what ends it.
export function follow(hint, connected) {
  let source = null;
  let open = false;
  let before = false;
  function connect() {
    source = new EventSource("/api/v1/events");
    source.onopen = () => {
      open = true;
      connected(true);
      if (before) hint("all"); // what happened meanwhile is not told again
      before = true;
    };
    source.onerror = () => {
      open = false;
      connected(false);
    };
    for (const kind of kinds) source.addEventListener(kind, () => hint(kind));
  }
  if (window.EventSource) connect();
  const timer = setInterval(() => {
    if (source && source.readyState === 2) connect(); // refused, so the browser does not try again
    if (!open) hint("all");
  }, poll_seconds * 1000);
  return () => {
    clearInterval(timer);
    if (source) source.close();
  };
}
