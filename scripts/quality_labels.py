"""Reads scripts/quality-labels.tsv: one photo a line, tab-separated, '#' lines are comments.
Columns are named by the first line that is not a comment; '-' is an empty field; a list
of points is x:y pairs separated by commas."""

NUMBERS = ("people",)
LISTS = ("classes", "scenes")
POINTS = ("faces",)


def read_labels(path):
    photos = []
    columns = None
    with open(path, encoding="utf-8") as tsv:
        for line in tsv:
            line = line.rstrip("\n")
            if not line.strip() or line.startswith("#"):
                continue
            fields = line.split("\t")
            if columns is None:
                columns = fields
                continue
            if len(fields) != len(columns):
                raise ValueError("%s: %d fields where %d columns are named: %s" % (path, len(fields), len(columns), line))
            photo = {}
            for column, value in zip(columns, fields):
                value = "" if value == "-" else value
                if column in NUMBERS:
                    value = int(value or 0)
                elif column in LISTS:
                    value = [v for v in value.split(",") if v]
                elif column in POINTS:
                    value = [tuple(float(c) for c in v.split(":")) for v in value.split(",") if v]
                photo[column] = value
            photos.append(photo)
    return photos
