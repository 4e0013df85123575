"""Stores accepted submissions and configuration requests under the collector's data folder.

DATA_DIR/submissions/<n>-<kind>-<uuid>/  fields.json, headers.json, files.json, files/...
DATA_DIR/index.jsonl                      one line per stored submission
DATA_DIR/config_requests.jsonl            one line per configuration request
"""

import datetime
import json
import pathlib
import re
import threading
import zipfile

UUID_TEXT = re.compile(r"^[A-Za-z0-9-]{1,64}$")


def now_text():
    return datetime.datetime.now(datetime.timezone.utc).isoformat(timespec="milliseconds")


def headers_as_json(headers):
    """Header name -> value; a header sent more than once keeps every value in a list."""
    collected = {}
    for name, value in headers.items():
        if name in collected:
            previous = collected[name]
            collected[name] = (previous if isinstance(previous, list) else [previous]) + [value]
        else:
            collected[name] = value
    return collected


def fields_as_json(pairs):
    """Field name -> value; a repeated name such as "attachments[]" keeps every value in a list."""
    fields = {}
    for name, value in pairs:
        if name in fields:
            previous = fields[name]
            fields[name] = (previous if isinstance(previous, list) else [previous]) + [value]
        else:
            fields[name] = value
    return fields


def _write_json(path, value):
    path.write_text(json.dumps(value, indent=2, ensure_ascii=False) + "\n", encoding="utf-8")


def _safe_file_name(name, taken):
    """A name that stays inside files/ and differs from the names already used."""
    base = pathlib.PurePosixPath(name.replace("\\", "/")).name
    if base in ("", ".", ".."):
        base = "unnamed"
    candidate, number = base, 2
    stem, dot, suffix = base.rpartition(".")
    while candidate in taken or candidate == "unzipped":
        candidate = f"{stem}-{number}.{suffix}" if dot and stem else f"{base}-{number}"
        number += 1
    taken.add(candidate)
    return candidate


def _unzip(archive_path, target):
    """Checks the archive's CRCs and unpacks it; returns (entry names, error text or None)."""
    try:
        with zipfile.ZipFile(archive_path) as archive:
            broken = archive.testzip()
            if broken is not None:
                return [], f"bad CRC in entry {broken}"
            target.mkdir(parents=True)
            # extractall keeps every entry inside target, dropping ".." and absolute parts.
            archive.extractall(target)
            return archive.namelist(), None
    except (zipfile.BadZipFile, OSError, EOFError, NotImplementedError) as error:
        return [], str(error)


def _looks_zipped(form_file):
    return (form_file.content_type == "application/zip"
            or form_file.filename.lower().endswith(".zip"))


class SubmissionStore:
    """Numbers, stores and indexes submissions; remembers uuids to flag repeated deliveries."""

    def __init__(self, data_dir):
        self.data_dir = pathlib.Path(data_dir)
        self.submissions_dir = self.data_dir / "submissions"
        self.submissions_dir.mkdir(parents=True, exist_ok=True)
        self.index_path = self.data_dir / "index.jsonl"
        self.config_log_path = self.data_dir / "config_requests.jsonl"
        self._lock = threading.Lock()
        self._seen_uuids = set()
        self._stored_counts = {"issue": 0, "event": 0}
        self._config_requests = 0
        self._sequence = 0
        self._resume_from_index()

    def _resume_from_index(self):
        """A restart on the same folder keeps numbering and duplicate detection going."""
        if not self.index_path.exists():
            return
        for line in self.index_path.read_text(encoding="utf-8").splitlines():
            entry = json.loads(line)
            self._seen_uuids.add(entry["uuid"])
            self._sequence = max(self._sequence, entry["sequence"])

    def counts(self):
        with self._lock:
            return {"stored": dict(self._stored_counts), "config_requests": self._config_requests}

    def store(self, kind, form, headers, body_size):
        """Writes one submission; returns its index entry."""
        uuid = fields_as_json(form.fields).get("uuid")
        if not isinstance(uuid, str) or not UUID_TEXT.match(uuid):
            raise ValueError("the submission has no usable \"uuid\" field")
        with self._lock:
            self._sequence += 1
            sequence = self._sequence
        folder = self.submissions_dir / f"{sequence:04d}-{kind}-{uuid}"
        files_dir = folder / "files"
        files_dir.mkdir(parents=True)
        _write_json(folder / "fields.json", fields_as_json(form.fields))
        _write_json(folder / "headers.json", headers_as_json(headers))
        _write_json(folder / "files.json", self._store_files(form.files, files_dir))

        entry = {
            "sequence": sequence,
            "kind": kind,
            "uuid": uuid,
            "path": str(folder),
            "received": now_text(),
            "fields": [name for name, _ in form.fields],
            "files": [{"field": part.field, "filename": part.filename} for part in form.files],
            "body_size": body_size,
        }
        with self._lock:
            entry["duplicate"] = uuid in self._seen_uuids
            self._seen_uuids.add(uuid)
            self._stored_counts[kind] += 1
            # The line goes last, so a reader that finds it finds the whole folder.
            self._append_line(self.index_path, entry)
        return entry

    def _store_files(self, parts, files_dir):
        taken, described = set(), []
        for part in parts:
            stored_name = _safe_file_name(part.filename, taken)
            (files_dir / stored_name).write_bytes(part.data)
            description = {
                "field": part.field,
                "filename": part.filename,
                "content_type": part.content_type,
                "stored_as": f"files/{stored_name}",
                "size": len(part.data),
            }
            if _looks_zipped(part):
                unzipped_dir = files_dir / "unzipped" / stored_name.removesuffix(".zip")
                entries, error = _unzip(files_dir / stored_name, unzipped_dir)
                description["zip_ok"] = error is None
                if error is None:
                    description["unzipped_to"] = str(unzipped_dir.relative_to(files_dir.parent))
                    description["zip_entries"] = entries
                else:
                    description["zip_error"] = error
            described.append(description)
        return described

    def log_config_request(self, query, headers, status):
        entry = {"received": now_text(), "query": query, "headers": headers_as_json(headers),
                 "status": status}
        with self._lock:
            self._config_requests += 1
            self._append_line(self.config_log_path, entry)

    @staticmethod
    def _append_line(path, entry):
        with open(path, "a", encoding="utf-8") as log:
            log.write(json.dumps(entry, ensure_ascii=False) + "\n")
