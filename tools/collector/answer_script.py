"""Scripted answers: per path, a queue of rules that replace the collector's normal answer."""

import collections
import copy
import threading
from dataclasses import asdict, dataclass, field
from typing import Optional, Union

DEFAULT_CONFIG = {"enabled": True, "check_interval": 15, "ignored": {}}

RULE_KEYS = {"path", "status", "times", "delay", "drop", "event", "body"}


class ScriptError(ValueError):
    pass


@dataclass
class Rule:
    path: str
    status: int = 200
    times: int = 1
    delay: float = 0.0
    drop: bool = False
    event: Optional[dict] = None
    # An object is sent as JSON, a string as it is (to answer with something that is not JSON).
    body: Union[dict, str, None] = None

    @classmethod
    def from_json(cls, item):
        if not isinstance(item, dict):
            raise ScriptError("a rule must be an object")
        unknown = set(item) - RULE_KEYS
        if unknown:
            raise ScriptError(f"unknown rule keys: {sorted(unknown)}")
        if not isinstance(item.get("path"), str) or not item["path"].startswith("/"):
            raise ScriptError("a rule needs a \"path\" starting with /")
        rule = cls(**item)
        checks = [
            (isinstance(rule.status, int) and 100 <= rule.status <= 599, "status"),
            (isinstance(rule.times, int) and rule.times >= 1, "times"),
            (isinstance(rule.delay, (int, float)) and rule.delay >= 0, "delay"),
            (isinstance(rule.drop, bool), "drop"),
            (rule.event is None or isinstance(rule.event, dict), "event"),
            (rule.body is None or isinstance(rule.body, (dict, str)), "body"),
        ]
        for valid, key in checks:
            if not valid:
                raise ScriptError(f"invalid \"{key}\" in rule for {rule.path}")
        return rule


@dataclass
class Script:
    rules: list = field(default_factory=list)
    config: Optional[dict] = None

    @classmethod
    def from_json(cls, document):
        if not isinstance(document, dict) or set(document) - {"rules", "config"}:
            raise ScriptError("a script is an object with \"rules\" and/or \"config\"")
        rules = document.get("rules", [])
        if not isinstance(rules, list):
            raise ScriptError("\"rules\" must be a list")
        config = document.get("config")
        if config is not None and not isinstance(config, dict):
            raise ScriptError("\"config\" must be an object")
        return cls([Rule.from_json(item) for item in rules], config)


class AnswerScript:
    """Thread-safe rule queues and the event configuration document currently served."""

    def __init__(self):
        self._lock = threading.Lock()
        self._queues = collections.defaultdict(collections.deque)  # path -> [rule, uses left]
        self._config = copy.deepcopy(DEFAULT_CONFIG)

    def add(self, script):
        """Queues the rules behind those still waiting; a config replaces the current one."""
        with self._lock:
            for rule in script.rules:
                self._queues[rule.path].append([rule, rule.times])
            if script.config is not None:
                self._config = copy.deepcopy(script.config)

    def take(self, path):
        """The rule that decides this request's answer, or None for the normal answer."""
        with self._lock:
            queue = self._queues.get(path)
            if not queue:
                return None
            entry = queue[0]
            entry[1] -= 1
            if entry[1] == 0:
                queue.popleft()
            return entry[0]

    def clear_rules(self):
        with self._lock:
            self._queues.clear()

    def config(self):
        with self._lock:
            return copy.deepcopy(self._config)

    def remaining(self):
        with self._lock:
            return [dict(asdict(rule), times=uses_left)
                    for queue in self._queues.values() for rule, uses_left in queue]
