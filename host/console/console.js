// The console: what the plugin publishes, live from the gateway's event
// stream, and its operations a button away. State comes only from the
// WebSocket; after a reconnection it is cleared and rebuilt from the
// snapshot, so the page never shows what the plugin no longer holds.
"use strict";

const BASE = "/qel-lobby-team-builder";
const CHAMP = BASE + "/champ-select/v1";
const URI = {
  lobby: BASE + "/v1/lobby",
  countdown: BASE + "/v1/lobby/countdown",
  search: BASE + "/v1/matchmaking",
  session: CHAMP + "/session",
  boost: CHAMP + "/team-boost",
  pickable: CHAMP + "/pickable-champions",
  bannable: CHAMP + "/bannable-champions",
  disabled: CHAMP + "/disabled-champions",
  skins: CHAMP + "/pickable-skins",
};
const token = new URLSearchParams(location.search).get("token") || "";
const resources = new Map();
// When each resource last arrived, on the page's clock: the timers shown
// count down from there.
const arrivedAt = new Map();
let lastSeq = 0;
let selectedChampion = 0;
let socket = null;
let retryDelay = 500;
let everConnected = false;
let lastToken = "";
// Simulated seconds per real second; the world's clock may run fast, and the
// plugin's timers are in the world's time.
let worldSpeed = 1;
let checkSeenAt = 0;
let searchSeenAt = 0;
let shownGrid = "";
let sessionShown = false;
const SESSION_ERRORS = ["action-error", "selection-error", "trade-error", "boost-error"];
const ALL_ERRORS = ["lobby-error", "search-error", "check-error"].concat(SESSION_ERRORS);

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

function clearErrors(ids) {
  for (const id of ids) {
    $(id).textContent = "";
  }
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
  socket.onopen = () => {
    retryDelay = 500;
    // A new gateway numbers its events from the start again: nothing of the
    // old connection may survive, not even the last seq.
    resources.clear();
    arrivedAt.clear();
    lastSeq = 0;
    lastToken = "";
    clearErrors(ALL_ERRORS);
    $("connection").textContent = "connected";
    $("connection").className = "state-open";
    document.body.classList.remove("offline");
    if (everConnected) {
      logLine("reconnected: all shown is the new snapshot");
    }
    everConnected = true;
    socket.send(JSON.stringify({ subscribe: "*" }));
    fetch("/qel-host/v1/world", { headers: { Authorization: "Bearer " + token } })
      .then((reply) => (reply.ok ? reply.json() : null))
      .then((world) => {
        worldSpeed = world && world.speed > 0 ? world.speed : 1;
      })
      .catch(() => {});
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
      // The answer to our subscription: where the stream stands.
      if (event.ok && typeof event.seq === "number") {
        lastSeq = Math.max(lastSeq, event.seq);
        scheduleRender();
      }
      return;
    }
    // The search with the token no longer shows it, yet leaving the
    // low-priority queue needs it: the last one seen is kept.
    if (event.uri === URI.search && event.data && event.data.lowPriorityData &&
        event.data.lowPriorityData.quitguardedAccessToken) {
      lastToken = event.data.lowPriorityData.quitguardedAccessToken;
    }
    if (event.eventType === "Delete") {
      resources.delete(event.uri);
      arrivedAt.delete(event.uri);
    } else {
      // A session republished from the same game record (a ceremony's end, a
      // ward skin) repeats that record's time left: it counts from the
      // record's arrival, not from the republication.
      const before = resources.get(event.uri);
      const receivedAt = (data) => data && data.timer && data.timer.internalNowInEpochMs;
      if (!(arrivedAt.has(event.uri) && receivedAt(before) && receivedAt(before) === receivedAt(event.data))) {
        arrivedAt.set(event.uri, performance.now());
      }
      resources.set(event.uri, event.data);
    }
    lastSeq = Math.max(lastSeq, event.seq);
    if (!event.snapshot) {
      logEvent(event);
    }
    scheduleRender();
  };
  socket.onclose = () => {
    socket = null;
    $("connection").textContent = "disconnected; reconnecting";
    $("connection").className = "state-closed";
    // Kept in sight, but marked as what was, not what is.
    document.body.classList.add("offline");
    setTimeout(connect, retryDelay);
    retryDelay = Math.min(retryDelay * 2, 5000);
  };
}

function logEvent(event) {
  logLine(event.seq + " " + event.eventType + " " + event.uri.replace(BASE, "…") + " " + summary(event));
}

function logLine(line) {
  const item = document.createElement("li");
  item.textContent = line;
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
  if (data.members) return data.members.length + " members" + (data.canStartMatchmaking ? ", ready" : "");
  if (data.searchState) return data.searchState + (data.readyCheck ? ", check " + data.readyCheck.state : "");
  if (data.timer && data.timer.phase) return data.timer.phase;
  if (data.championIds) return data.championIds.length + " champions";
  if (data.skinIds) return data.skinIds.length + " skins";
  if (data.phaseName) return data.phaseName;
  if (data.price !== undefined) return data.unlocked ? "unlocked by " + data.summonerName : "price " + data.price;
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
  tick();
}

// Seconds left of a world-time span that had `millis` left when `uri` arrived.
function secondsLeft(uri, millis) {
  const elapsed = ((performance.now() - (arrivedAt.get(uri) || performance.now())) / 1000) * worldSpeed;
  return Math.max(0, Math.ceil(millis / 1000 - elapsed));
}

// The countdowns move between events without asking anyone.
function tick() {
  const session = resources.get(URI.session);
  const timer = $("phase-timer");
  if (session && timer) {
    timer.textContent = secondsLeft(URI.session, (session.timer || {}).adjustedTimeLeftInPhase || 0);
  }
  const queue = $("queue-time");
  if (queue) {
    queue.textContent = Math.floor(((performance.now() - searchSeenAt) / 1000) * worldSpeed) + " s";
  }
  const check = $("check-timer");
  if (check) {
    const search = resources.get(URI.search) || {};
    const seconds = ((search.readyCheck || {}).timer || 0) * 1000;
    check.textContent = seconds > 0
      ? secondsLeft(URI.search, seconds) + " s left"
      : "open for " + Math.floor(((performance.now() - checkSeenAt) / 1000) * worldSpeed) + " s";
  }
}
setInterval(tick, 250);

function positions(preferences) {
  if (!preferences) return "";
  return [preferences.firstPreference, preferences.secondPreference]
    .filter((p) => p && p !== "UNSELECTED")
    .join(" / ");
}

function renderLobby() {
  const lobby = resources.get(URI.lobby);
  const countdown = resources.get(URI.countdown);
  // The plugin keeps its last countdown after the game starts; it means
  // something only beside a lobby, a search or a champion select.
  const current = lobby || resources.get(URI.search) || resources.get(URI.session);
  $("countdown").textContent = countdown && current
    ? `countdown: phase ${countdown.phaseName}, timer ${countdown.timer}, record #${countdown.counter}`
    : "";
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
        `<td>${escape(positions(m.positionPreferences)) || "none yet"}</td>` +
        `<td class="actions">${m.id === local ? "" : `<button type="button" data-member="${escape(m.id)}" data-do="promote">Promote</button>
           <button type="button" data-member="${escape(m.id)}" data-do="kick">Kick</button>`}</td></tr>`
    )
    .join("");
  const removed = lobby.wasKicked || (lobby.removalReason && lobby.removalReason !== "None")
    ? `<p class="warn">removed from the lobby: ${escape(lobby.removalReason)}${lobby.wasKicked ? " (kicked)" : ""}</p>` : "";
  $("lobby").innerHTML =
    `<p>queue ${escape(lobby.queueId)}: <strong id="lobby-ready">${lobby.canStartMatchmaking ? "ready to queue" : "not ready to queue"}</strong></p>` +
    removed +
    `<div class="scroll"><table><thead><tr><th>member</th><th>role</th><th>positions</th><th></th></tr></thead><tbody>${rows}</tbody></table></div>`;
}

function renderSearch() {
  const search = resources.get(URI.search);
  if (!search) {
    $("search").textContent = "No search.";
    checkSeenAt = 0;
    searchSeenAt = 0;
    return;
  }
  // The plugin does not count the time in queue: counted here from the
  // value it gives, or from when the search was first seen.
  if (search.isCurrentlyInQueue) {
    if (!searchSeenAt) searchSeenAt = performance.now() - (search.timeInQueue || 0) * 1000 / worldSpeed;
  } else {
    searchSeenAt = 0;
  }
  const check = search.readyCheck || {};
  if (check.state === "InProgress") {
    if (!checkSeenAt) checkSeenAt = performance.now();
  } else {
    checkSeenAt = 0;
  }
  const low = search.lowPriorityData || {};
  const errors = (search.errors || [])
    .map((e) => escape(`${e.errorType} (summoner ${e.penalizedSummonerId}, ${e.penaltyTimeRemaining} s): ${e.message}`))
    .join("; ");
  const dodge = search.dodgeData || {};
  const penalized = (low.penalizedSummonerIds || []).join(", ");
  $("search").innerHTML =
    `<p>state <strong id="search-state">${escape(search.searchState)}</strong>` +
    (search.isCurrentlyInQueue ? " (in queue)" : "") +
    (search.isCurrentlyInQueue ? `, <span id="queue-time"></span> in queue` : "") +
    `, estimate ${Math.round(search.estimatedQueueTime || 0)} s</p>` +
    `<p>ready check <strong id="ready-check-state">${escape(check.state)}</strong>` +
    (check.state === "InProgress" ? `, <span id="check-timer"></span>` : "") +
    `; your answer: ${escape(check.playerResponse)}` +
    (check.dodgeWarning && check.dodgeWarning !== "None" ? `; dodge warning: ${escape(check.dodgeWarning)}` : "") +
    `; declined by: <span id="decliners">${escape((check.declinerIds || []).join(", ") || "nobody")}</span></p>` +
    `<p>dodge: ${escape(dodge.state)}${dodge.dodgerId ? " by " + escape(dodge.dodgerId) : ""}</p>` +
    (penalized || low.penaltyTime || low.quitguardedAccessToken
      ? `<p class="warn" id="low-priority">low priority: ${escape(penalized || "-")}, penalty ${escape(low.penaltyTime)} s` +
        (low.penaltyTimeRemaining ? ` (${escape(low.penaltyTimeRemaining)} s left)` : "") + `, token <code>${escape(low.quitguardedAccessToken || "-")}</code></p>`
      : "<p>no low-priority penalty</p>") +
    `<p>restrictions: ${errors || "none"}</p>`;
}

// A ceremony is a set of its own, one action with no actor.
const isCeremony = (action) => action.actorCellId < 0 && action.type !== "pick" && action.type !== "ban";

// The first set with an open action is the one in progress. A ceremony
// before it is shown, not waited for: the plugin closes it on its own clock,
// which a fast world outruns.
function currentSet(session) {
  return (session.actions || []).find((set) => set.some((a) => !a.completed && !isCeremony(a)));
}

function currentCeremony(session) {
  const set = (session.actions || []).find((set) => set.some((a) => !a.completed));
  return set && set.length && isCeremony(set[0]) ? set[0] : undefined;
}

// Our open action in the set in progress; nobody acts while the teams plan.
function currentAction(session) {
  if ((session.timer || {}).phase !== "BAN_PICK") return undefined;
  const set = currentSet(session);
  return set && set.find((a) => a.actorCellId === session.localPlayerCellId && !a.completed);
}

// What a hover changes: the open action, or else our pick to come, which
// shows the team our intent.
function hoverTarget(session) {
  return (
    currentAction(session) ||
    (session.actions || []).flat().find((a) => a.actorCellId === session.localPlayerCellId && a.type === "pick" && !a.completed)
  );
}

function cellName(session, cellId) {
  const all = (session.myTeam || []).concat(session.theirTeam || []);
  const cell = all.find((p) => p.cellId === cellId);
  return cell ? cell.displayName || "cell " + cellId : "cell " + cellId;
}

function renderSession() {
  const session = resources.get(URI.session);
  const boost = resources.get(URI.boost);
  $("boost").innerHTML = boost
    ? `team boost: <strong id="boost-state">${boost.unlocked ? "unlocked by " + escape(boost.summonerName) : "not bought"}</strong>, ` +
      `price ${escape(boost.price)}` +
      (boost.skinUnlockMode ? `, ${escape(boost.skinUnlockMode)}` : "") +
      ((boost.availableSkins || []).length ? `, skins ${escape(boost.availableSkins.join(", "))}` : "")
    : "No team boost.";
  if (!session) {
    if (sessionShown) {
      // What was refused belonged to the session that ended.
      sessionShown = false;
      clearErrors(SESSION_ERRORS);
    }
    $("session").textContent = "No champion select.";
    $("champions").innerHTML = "";
    shownGrid = "";
    $("trades").textContent = "No trades.";
    $("skin").innerHTML = "";
    return;
  }
  sessionShown = true;
  const local = session.localPlayerCellId;
  const cell = (p) =>
    `<tr class="${p.cellId === local ? "you" : ""}"><td>${escape(p.cellId)}</td>` +
    `<td>${escape(p.displayName || (p.summonerId ? p.summonerId : "hidden"))}${p.cellId === local ? " (you)" : ""}</td><td>${escape(p.assignedPosition)}</td>` +
    `<td>${p.championId ? escape(p.championId) : "-"}${p.championPickIntent && p.championPickIntent !== p.championId ? " (intent " + escape(p.championPickIntent) + ")" : ""}</td>` +
    `<td>${escape(p.selectedSkinId || "")}</td><td>${escape(p.spell1Id)}/${escape(p.spell2Id)}</td>` +
    `<td>${p.wardSkinId >= 0 ? escape(p.wardSkinId) : ""}</td></tr>`;
  const team = (id, cells) =>
    `<div class="scroll"><table id="${id}"><thead><tr><th>cell</th><th>player</th><th>position</th><th>champion</th>` +
    `<th>skin</th><th>spells</th><th>ward</th></tr></thead><tbody>${(cells || []).map(cell).join("")}</tbody></table></div>`;
  const set = currentSet(session);
  const action = currentAction(session);
  const ceremony = currentCeremony(session);
  let setText = set
    ? set
      .map((a) => `${escape(cellName(session, a.actorCellId))} ${escape(a.type)} ${a.championId ? escape(a.championId) : "…"}` +
        (a.completed ? " ✓" : ""))
      .join("; ")
    : "no open action";
  if (ceremony) {
    setText = `ceremony <strong id="ceremony">${escape(ceremony.type)}</strong> (${Math.round((ceremony.duration || 0) / 1000)} s)` +
      (set ? `, then ${setText}` : "");
  }
  const bans = (session.actions || [])
    .flat()
    .filter((a) => a.type === "ban" && a.completed)
    .map((a) => (a.championId ? a.championId : "none"));
  const timer = session.timer || {};
  const mine = (session.myTeam || []).find((p) => p.cellId === local) || {};
  $("session").innerHTML =
    `<p>phase <strong id="session-phase">${escape(timer.phase)}</strong>, ` +
    `<span id="phase-timer"></span> s left of ${Math.round((timer.totalTimeInPhase || 0) / 1000)}</p>` +
    `<p>action set: <span id="action-set">${setText}</span></p>` +
    `<p id="my-action" class="${action ? "turn" : ""}">${action ? "your turn: " + escape(action.type) + " (action " + escape(action.id) + ")"
      : timer.phase === "PLANNING" ? "planning: hover a champion to show your intent" : "not your turn"}</p>` +
    `<p>you play <strong id="my-champion">${mine.championId ? escape(mine.championId) : "nothing yet"}</strong>` +
    (mine.championPickIntent && !mine.championId ? ` (intent ${escape(mine.championPickIntent)})` : "") + `</p>` +
    `<p>bans: <span id="bans">${escape(bans.join(", ") || "none")}</span>; ` +
    `rerolls ${session.allowRerolling ? "allowed" : "not allowed"}, ${escape(session.rerollsRemaining)} left</p>` +
    `<div class="columns"><div><h3>Your team</h3>${team("my-team", session.myTeam)}</div>` +
    `<div><h3>Their team</h3>${team("their-team", session.theirTeam)}</div></div>`;

  const list = resources.get(action && action.type === "ban" ? URI.bannable : URI.pickable);
  // Banned champions and those others play are offered but cannot be picked.
  const disabled = new Set((resources.get(URI.disabled) || {}).championIds || []);
  if (!(action && action.type === "ban")) {
    bans.forEach((id) => disabled.add(id));
    (session.myTeam || []).concat(session.theirTeam || [])
      .filter((p) => p.cellId !== local && p.championId)
      .forEach((p) => disabled.add(p.championId));
  }
  const filter = $("champion-filter").value.trim();
  const ids = ((list && list.championIds) || []).filter((id) => !filter || String(id).includes(filter));
  $("champions-label").textContent = action && action.type === "ban" ? "Bannable champions" : "Pickable champions";
  const grid = ids
    .map((id) =>
      `<button type="button" data-champion="${id}" aria-pressed="${id === selectedChampion}"` +
      `${disabled.has(id) ? " disabled" : ""}>${id < 0 ? "no ban" : id}</button>`)
    .join("");
  // Rebuilt only when it changes, and the focused champion keeps the focus.
  if (shownGrid !== grid) {
    const focused = document.activeElement && document.activeElement.dataset.champion;
    $("champions").innerHTML = grid;
    shownGrid = grid;
    const again = focused && $("champions").querySelector(`[data-champion="${focused}"]`);
    if (again) again.focus();
  }

  const skins = ((resources.get(URI.skins) || {}).skinIds || []).filter(
    (id) => mine.championId && Math.floor(id / 1000) === mine.championId);
  const options = skins.map((id) => `<option value="${id}"${id === mine.selectedSkinId ? " selected" : ""}>${id}</option>`).join("");
  if ($("skin").dataset.options !== options) {
    $("skin").innerHTML = options;
    $("skin").dataset.options = options;
  }

  const verbs = { AVAILABLE: ["request"], RECEIVED: ["accept", "decline"], SENT: ["cancel"] };
  const described = { RECEIVED: "offered to you", SENT: "offered by you", AVAILABLE: "possible", BUSY: "busy", INVALID: "invalid" };
  $("trades").innerHTML = (session.trades || []).length
    ? `<ul>` + session.trades
      .map((t) =>
        `<li data-state="${escape(t.state)}">trade ${escape(t.id)} with ${escape(cellName(session, t.cellId))}: ` +
        `<strong>${escape(t.state)}</strong> (${escape(described[t.state] || "")}) ` +
        (verbs[t.state] || [])
          .map((verb) => `<button type="button" id="trade-${escape(t.id)}-${verb}" data-trade="${escape(t.id)}" data-do="${verb}">${verb}</button>`)
          .join(" ") +
        `</li>`)
      .join("") + `</ul>`
    : "No trades.";
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
    const search = resources.get(URI.search);
    return (search && search.lowPriorityData && search.lowPriorityData.quitguardedAccessToken) || lastToken;
  };
  $("start-search").onclick = () =>
    act("search-error", () => api("POST", BASE + "/v1/matchmaking/search", lowPriorityToken()));
  $("leave-search").onclick = () => act("search-error", () => api("DELETE", BASE + "/v1/matchmaking/search"));
  $("abandon-low-priority").onclick = () =>
    act("search-error", () => api("POST", BASE + "/v1/matchmaking/low-priority-queue/abandon", lowPriorityToken()));
  $("accept-check").onclick = () => act("check-error", () => api("POST", BASE + "/v1/ready-check/accept"));
  $("decline-check").onclick = () => act("check-error", () => api("POST", BASE + "/v1/ready-check/decline"));
  $("champions").onclick = (e) => {
    if (e.target.dataset.champion) {
      selectedChampion = Number(e.target.dataset.champion);
      render();
    }
  };
  $("champion-filter").oninput = render;
  const onAction = (complete) =>
    act("action-error", async () => {
      const session = resources.get(URI.session);
      const action = session && (complete ? currentAction(session) : hoverTarget(session));
      if (!action) throw new Error(complete ? "It is not your turn" : "You have nothing to hover");
      if (!selectedChampion) throw new Error("Choose a champion first");
      await api("PATCH", `${CHAMP}/session/actions/${action.id}`, { championId: selectedChampion, completed: false });
      if (complete) await api("POST", `${CHAMP}/session/actions/${action.id}/complete`);
    });
  $("hover").onclick = () => onAction(false);
  $("lock-in").onclick = () => onAction(true);
  $("reroll").onclick = () => act("action-error", () => api("POST", CHAMP + "/session/my-selection/reroll"));
  $("choose-selection").onclick = () =>
    act("selection-error", () => {
      const selection = {};
      if ($("skin").value) selection.selectedSkinId = Number($("skin").value);
      for (const [field, id] of [["spell1Id", "spell1"], ["spell2Id", "spell2"], ["wardSkinId", "ward-skin"]]) {
        if ($(id).value !== "") selection[field] = Number($(id).value);
      }
      return api("PATCH", CHAMP + "/session/my-selection", selection);
    });
  $("buy-boost").onclick = () => act("boost-error", () => api("POST", CHAMP + "/team-boost/purchase"));
  $("trades").onclick = (e) => {
    const trade = e.target.dataset.trade;
    if (trade) act("trade-error", () => api("POST", `${CHAMP}/session/trades/${trade}/${e.target.dataset.do}`));
  };
}

wire();
render();
connect();
