// The console: what the plugin publishes, live from the gateway's event
// stream, and its operations a button away. State comes only from the
// WebSocket; after a reconnection it is cleared and rebuilt from the
// snapshot, so the page never shows what the plugin no longer holds.
"use strict";

const BASE = "/qel-lobby-team-builder";
const CHAMP = BASE + "/champ-select/v1";
const token = new URLSearchParams(location.search).get("token") || "";
const resources = new Map();
let lastSeq = 0;
let selectedChampion = 0;
let socket = null;
let retryDelay = 500;

const $ = (id) => document.getElementById(id);
const text = (value) => (value === undefined || value === null ? "" : String(value));
const escape = (value) =>
  text(value).replace(/[&<>"]/g, (c) => ({ "&": "&amp;", "<": "&lt;", ">": "&gt;", '"': "&quot;" })[c]);

// ---- Calls ---------------------------------------------------------------------------------

async function api(method, path, body) {
  const headers = { Authorization: "Bearer " + token };
  const init = { method, headers };
  if (body !== undefined) {
    headers["Content-Type"] = "application/json";
    init.body = JSON.stringify(body);
  }
  const reply = await fetch(path, init);
  const content = await reply.text();
  if (!reply.ok) {
    let detail = content;
    try {
      detail = JSON.parse(content).detail || content;
    } catch (_) {}
    throw new Error(reply.status + " " + detail);
  }
  return content ? JSON.parse(content) : null;
}

// Runs a call for a control; a failure shows beside it, a success clears it.
function act(errorId, call) {
  const error = $(errorId);
  error.textContent = "";
  call().catch((e) => {
    error.textContent = e.message;
  });
}

// ---- Stream ---------------------------------------------------------------------------------

function connect() {
  const scheme = location.protocol === "https:" ? "wss:" : "ws:";
  socket = new WebSocket(scheme + "//" + location.host + "/events?token=" + encodeURIComponent(token));
  $("connection").textContent = "connecting…";
  socket.onopen = () => {
    retryDelay = 500;
    resources.clear();
    $("connection").textContent = "connected";
    $("connection").className = "state-open";
    socket.send(JSON.stringify({ subscribe: "*" }));
    render();
  };
  socket.onmessage = (message) => {
    let event;
    try {
      event = JSON.parse(message.data);
    } catch (_) {
      return;
    }
    if (event.uri === undefined) {
      return;
    }
    if (event.eventType === "Delete") {
      resources.delete(event.uri);
    } else {
      resources.set(event.uri, event.data);
    }
    lastSeq = Math.max(lastSeq, event.seq);
    if (!event.snapshot) {
      logEvent(event);
    }
    scheduleRender();
  };
  socket.onclose = () => {
    $("connection").textContent = "disconnected; reconnecting";
    $("connection").className = "state-closed";
    setTimeout(connect, retryDelay);
    retryDelay = Math.min(retryDelay * 2, 5000);
  };
}

function logEvent(event) {
  const item = document.createElement("li");
  item.textContent = event.seq + " " + event.eventType + " " + event.uri + " " + summary(event);
  const log = $("log");
  log.prepend(item);
  while (log.children.length > 50) {
    log.lastChild.remove();
  }
}

function summary(event) {
  const data = event.data;
  if (data === null || typeof data !== "object") {
    return text(data);
  }
  if (data.members) return data.members.length + " members";
  if (data.searchState) return data.searchState + (data.readyCheck ? ", check " + data.readyCheck.state : "");
  if (data.timer && data.timer.phase) return data.timer.phase;
  if (data.championIds) return data.championIds.length + " champions";
  if (data.phaseName) return data.phaseName;
  return Object.keys(data).slice(0, 3).join(", ");
}

// Many events arrive together during a draft: one render for a burst.
let renderPending = false;
function scheduleRender() {
  if (!renderPending) {
    renderPending = true;
    setTimeout(() => {
      renderPending = false;
      render();
    }, 0);
  }
}

// ---- Views ----------------------------------------------------------------------------------

// A record of an unexpected shape costs its own panel, never the others.
function render() {
  $("last-seq").textContent = lastSeq;
  for (const [panel, view] of [
    ["lobby", renderLobby],
    ["search", renderSearch],
    ["session", renderSession],
  ]) {
    try {
      view();
    } catch (e) {
      $(panel).textContent = "Cannot show this: " + e.message;
    }
  }
}

function positions(preferences) {
  if (!preferences) return "";
  return [preferences.firstPreference, preferences.secondPreference]
    .filter((p) => p && p !== "UNSELECTED")
    .join(" / ");
}

function renderLobby() {
  const lobby = resources.get(BASE + "/v1/lobby");
  const countdown = resources.get(BASE + "/v1/lobby/countdown");
  $("countdown").textContent = countdown ? "phase " + countdown.phaseName + ", record #" + countdown.counter : "";
  if (!lobby) {
    $("lobby").textContent = "No lobby.";
    return;
  }
  const local = lobby.localMember ? lobby.localMember.id : undefined;
  const rows = (lobby.members || [])
    .map(
      (m) =>
        `<tr class="${m.id === local ? "you" : ""}"><td>${escape(m.id)}${m.id === local ? " (you)" : ""}</td>` +
        `<td>${m.isOwner ? "captain" : ""}</td>` +
        `<td>${escape(positions(m.positionPreferences))}</td>` +
        `<td>${m.id === local ? "" : `<button type="button" data-member="${escape(m.id)}" data-do="promote">Promote</button>
           <button type="button" data-member="${escape(m.id)}" data-do="kick">Kick</button>`}</td></tr>`
    )
    .join("");
  $("lobby").innerHTML =
    `<p>queue ${escape(lobby.queueId)}; ${lobby.canStartMatchmaking ? "ready to queue" : "not ready to queue"}</p>` +
    `<table><thead><tr><th>member</th><th>role</th><th>positions</th><th></th></tr></thead><tbody>${rows}</tbody></table>`;
}

function renderSearch() {
  const search = resources.get(BASE + "/v1/matchmaking");
  if (!search) {
    $("search").textContent = "No search.";
    return;
  }
  const check = search.readyCheck || {};
  const low = search.lowPriorityData || {};
  const errors = (search.errors || []).map((e) => escape(e.errorType + " " + e.message)).join("; ");
  $("search").innerHTML =
    `<p>state <strong id="search-state">${escape(search.searchState)}</strong>, ` +
    `in queue ${Math.round(search.timeInQueue || 0)} s of about ${Math.round(search.estimatedQueueTime || 0)} s</p>` +
    `<p>ready check <strong id="ready-check-state">${escape(check.state)}</strong>` +
    `, you: ${escape(check.playerResponse)}, timer ${escape(check.timer)}` +
    (check.declinerIds && check.declinerIds.length ? `, declined by ${escape(check.declinerIds.join(", "))}` : "") +
    `</p>` +
    (low.penaltyTime ? `<p>low priority: ${escape(low.penaltyTimeRemaining)} s left</p>` : "") +
    (search.dodgeData && search.dodgeData.state !== "Invalid" ? `<p>dodge: ${escape(search.dodgeData.state)}</p>` : "") +
    (errors ? `<p>restrictions: ${errors}</p>` : "");
}

function currentAction(session) {
  for (const set of session.actions || []) {
    if (set.some((a) => !a.completed)) {
      return set.find((a) => a.actorCellId === session.localPlayerCellId && !a.completed);
    }
  }
  return undefined;
}

function renderSession() {
  const session = resources.get(CHAMP + "/session");
  if (!session) {
    $("session").textContent = "No champion select.";
    $("champions").innerHTML = "";
    $("trades").innerHTML = "";
    $("boost").innerHTML = "";
    return;
  }
  const cell = (p) =>
    `<tr class="${p.cellId === session.localPlayerCellId ? "you" : ""}"><td>${escape(p.cellId)}</td>` +
    `<td>${escape(p.displayName || p.summonerId)}</td><td>${escape(p.assignedPosition)}</td>` +
    `<td>${escape(p.championId || "")}${p.championPickIntent ? " (intent " + escape(p.championPickIntent) + ")" : ""}</td>` +
    `<td>${escape(p.selectedSkinId || "")}</td><td>${escape(p.spell1Id)}/${escape(p.spell2Id)}</td></tr>`;
  const team = (cells) =>
    `<table><thead><tr><th>cell</th><th>player</th><th>position</th><th>champion</th><th>skin</th><th>spells</th></tr></thead>` +
    `<tbody>${(cells || []).map(cell).join("")}</tbody></table>`;
  const action = currentAction(session);
  const bans = (session.actions || [])
    .flat()
    .filter((a) => a.type === "ban" && a.completed)
    .map((a) => a.championId);
  const timer = session.timer || {};
  $("session").innerHTML =
    `<p>phase <strong id="session-phase">${escape(timer.phase)}</strong>, ` +
    `${Math.round((timer.adjustedTimeLeftInPhase || 0) / 1000)} s left</p>` +
    `<p id="my-action">${action ? "your turn: " + escape(action.type) + " (action " + escape(action.id) + ")" : "not your turn"}</p>` +
    `<p>bans: ${escape(bans.join(", ") || "none")}; rerolls left ${escape(session.rerollsRemaining)}</p>` +
    `<h3>Your team</h3>${team(session.myTeam)}<h3>Their team</h3>${team(session.theirTeam)}`;
  const list = resources.get(CHAMP + (action && action.type === "ban" ? "/bannable-champions" : "/pickable-champions"));
  const filter = $("champion-filter").value.trim();
  const ids = ((list && list.championIds) || []).filter((id) => !filter || String(id).includes(filter));
  $("champions").innerHTML = ids
    .map((id) => `<button type="button" role="option" data-champion="${id}" aria-selected="${id === selectedChampion}">${id}</button>`)
    .join("");
  $("trades").innerHTML = (session.trades || [])
    .map(
      (t) =>
        `<p>trade ${escape(t.id)} with cell ${escape(t.cellId)}: ${escape(t.state)} ` +
        ["request", "accept", "decline", "cancel"]
          .map((verb) => `<button type="button" data-trade="${escape(t.id)}" data-do="${verb}">${verb}</button>`)
          .join(" ") +
        `</p>`
    )
    .join("");
  const boost = resources.get(CHAMP + "/team-boost");
  $("boost").innerHTML = boost
    ? `<p>team boost: ${boost.unlocked ? "unlocked by " + escape(boost.summonerName) : "available for " + escape(boost.price)}</p>`
    : "";
}

// ---- Controls -------------------------------------------------------------------------------

function wire() {
  for (const id of ["first-position", "second-position"]) {
    $(id).innerHTML = ["TOP", "JUNGLE", "MIDDLE", "BOTTOM", "UTILITY", "FILL"]
      .map((p) => `<option>${p}</option>`)
      .join("");
  }
  $("second-position").value = "TOP";
  $("first-position").value = "MIDDLE";
  $("create-lobby").onclick = () => act("lobby-error", () => api("POST", BASE + "/v1/lobby", { queueId: 62 }));
  $("join-invitation").onclick = () =>
    act("lobby-error", async () => {
      const world = await api("GET", "/qel-host/v1/world");
      if (!world.invitation) throw new Error("No invitation is waiting");
      const id = world.invitation.draftPremadeId;
      return api("POST", BASE + "/v1/invitations/accept", {
        invitationMetaData: { groupFinderId: id, draftPremadeId: id },
      });
    });
  $("set-positions").onclick = () =>
    act("lobby-error", () =>
      api("POST", BASE + "/v2/position-preferences", {
        firstPreference: $("first-position").value,
        secondPreference: $("second-position").value,
      })
    );
  $("quit-lobby").onclick = () => act("lobby-error", () => api("DELETE", BASE + "/v1/lobby"));
  $("lobby").onclick = (e) => {
    const member = e.target.dataset.member;
    if (member) act("lobby-error", () => api("POST", `${BASE}/v1/lobby/members/${member}/${e.target.dataset.do}`));
  };
  const lowPriorityToken = () => {
    const search = resources.get(BASE + "/v1/matchmaking");
    return (search && search.lowPriorityData && search.lowPriorityData.quitguardedAccessToken) || "";
  };
  $("start-search").onclick = () =>
    act("search-error", () => api("POST", BASE + "/v1/matchmaking/search", lowPriorityToken()));
  $("leave-search").onclick = () => act("search-error", () => api("DELETE", BASE + "/v1/matchmaking/search"));
  $("abandon-low-priority").onclick = () =>
    act("search-error", () => api("POST", BASE + "/v1/matchmaking/low-priority-queue/abandon", lowPriorityToken()));
  $("accept-check").onclick = () => act("search-error", () => api("POST", BASE + "/v1/ready-check/accept"));
  $("decline-check").onclick = () => act("search-error", () => api("POST", BASE + "/v1/ready-check/decline"));
  $("champions").onclick = (e) => {
    if (e.target.dataset.champion) {
      selectedChampion = Number(e.target.dataset.champion);
      render();
    }
  };
  $("champion-filter").oninput = render;
  const onAction = (complete) =>
    act("session-error", async () => {
      const session = resources.get(CHAMP + "/session");
      const action = session && currentAction(session);
      if (!action) throw new Error("It is not your turn");
      if (!selectedChampion) throw new Error("Choose a champion first");
      await api("PATCH", `${CHAMP}/session/actions/${action.id}`, { championId: selectedChampion, completed: false });
      if (complete) await api("POST", `${CHAMP}/session/actions/${action.id}/complete`);
    });
  $("hover").onclick = () => onAction(false);
  $("lock-in").onclick = () => onAction(true);
  $("reroll").onclick = () => act("session-error", () => api("POST", CHAMP + "/session/my-selection/reroll"));
  $("buy-boost").onclick = () => act("session-error", () => api("POST", CHAMP + "/team-boost/purchase"));
  $("trades").onclick = (e) => {
    const trade = e.target.dataset.trade;
    if (trade) act("session-error", () => api("POST", `${CHAMP}/session/trades/${trade}/${e.target.dataset.do}`));
  };
}

wire();
render();
connect();
