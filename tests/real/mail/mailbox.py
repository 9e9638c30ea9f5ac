"""mailbox.py FOLDER: what the mails of a mailbox say to a parser that forgives nothing: a line each, sorted, of ID,
subject, sender, recipients, plain text and HTML, or of what is wrong with it."""

import email
import email.policy
import glob
import sys

lines = []
for path in glob.glob(sys.argv[1] + "/*.eml"):
    try:
        mail = email.message_from_bytes(open(path, "rb").read(), policy=email.policy.strict)
        for part in mail.walk():
            if not part.is_multipart():
                part.get_content()
            defects = list(part.defects) + [defect for value in part.values() for defect in value.defects]
            if defects:
                raise ValueError(defects)
        plain, html = (mail.get_body((kind,)).get_content().replace("\r\n", "\n") for kind in ("plain", "html"))
        if mail["date"].datetime is None or mail["date"].datetime.tzinfo is None:
            raise ValueError("date " + mail["date"])
        lines.append(repr([mail["message-id"], mail["subject"], mail["from"], mail["to"], plain, html]))
    except Exception as failure:
        lines.append(f"{path}: {failure!r}")
sys.stdout.buffer.write("\n".join(sorted(lines)).encode())
