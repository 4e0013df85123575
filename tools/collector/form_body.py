"""Reads a multipart/form-data request body with the standard library's MIME parser."""

import email.errors
import email.parser
import email.policy
from dataclasses import dataclass

# Defects that mean the body is not a usable form: a part count or a part's end cannot be trusted.
FATAL_DEFECTS = (
    email.errors.NoBoundaryInMultipartDefect,
    email.errors.StartBoundaryNotFoundDefect,
    email.errors.CloseBoundaryNotFoundDefect,
    email.errors.MultipartInvariantViolationDefect,
)


class FormBodyError(ValueError):
    pass


@dataclass
class FormFile:
    field: str
    filename: str
    content_type: str
    data: bytes


@dataclass
class FormBody:
    fields: list  # (name, text) pairs, in body order
    files: list  # FormFile, in body order


def _readable(text):
    """Header parameters may keep undecodable bytes as surrogates; JSON cannot hold those."""
    return text.encode("utf-8", "surrogateescape").decode("utf-8", "replace")


def parse_form_body(content_type, body):
    """Splits `body` into plain fields and file parts; raises FormBodyError when it is no form."""
    if not content_type or not content_type.lower().startswith("multipart/form-data"):
        raise FormBodyError("Content-Type is not multipart/form-data")
    header = b"Content-Type: " + content_type.encode("latin-1") + b"\r\n\r\n"
    message = email.parser.BytesParser(policy=email.policy.HTTP).parsebytes(header + body)
    if message.get_boundary() is None:
        raise FormBodyError("Content-Type names no boundary")
    if not message.is_multipart():
        raise FormBodyError("body is not multipart")
    fatal = [defect for defect in message.defects if isinstance(defect, FATAL_DEFECTS)]
    if fatal:
        raise FormBodyError(f"malformed multipart body: {type(fatal[0]).__name__}")

    form = FormBody(fields=[], files=[])
    for part in message.iter_parts():
        if part.get_content_disposition() != "form-data":
            raise FormBodyError("a part is not form-data")
        name = part.get_param("name", header="content-disposition")
        if name is None:
            raise FormBodyError("a part has no field name")
        name = _readable(str(name))
        data = part.get_payload(decode=True) or b""
        filename = part.get_filename()
        if filename is None:
            form.fields.append((name, data.decode("utf-8", "replace")))
        else:
            form.files.append(FormFile(name, _readable(filename), part.get_content_type(), data))
    return form
