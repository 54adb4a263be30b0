# SPDX-License-Identifier: MIT
#
# Sourced by tests/docs/run.py in a new folder: the inputs that the commands of document $1 name. What
# kind of picture a file is, its first bytes tell, not its name.

# pages FILE DEVICE [OPTION...]: 13 pages that differ.
pages() {
  gs -q -dSAFER -dBATCH -dNOPAUSE -r72 -g400x300 -sDEVICE="$2" -sOutputFile="$1" "${@:3}" -c \
    '1 1 13 { /Helvetica 40 selectfont 30 60 moveto 20 string cvs show showpage } for'
}

cp "$ROOT/examples/sample.jpg" photo.jpg
ln -s "$ROOT/examples" examples
print="corvane print photo.jpg --quiet"
case $1 in
  docs/colour.md) cp examples/inks.json mine.json ;;
  docs/host.md) $print -o page.tif --paper 31x23mm --fit --record page.jsonl ;;
  docs/jobs.md)
    mkdir queue letters
    pages queue/a.tif tiff24nc -dLastPage=1
    pages queue/b.tif tiff24nc -dLastPage=1
    cp photo.jpg letters/0001.png
    cp photo.jpg letters/0002.png
    printf '#customer,input,mode,media\n"Doe, J.",letters/0001.png,,\nRoe,letters/0002.png,54,glossy\n' >letters.csv
    ;;
  docs/paper-feed.md) echo '{"nozzlesPerColumn": 600}' >head.json ;;
  docs/replay.md) cp photo.jpg photo.png ;;
  docs/report.md)
    for name in page a b before; do $print -o $name.tif --media glossy; done
    cp before.tif after.tif
    echo '{"currency": "EUR", "perLitre": {"C": 120, "K": 80}}' >prices.json
    ;;
  docs/printing.md)
    pages paper.pdf pdfwrite
    pages report.ps ps2write
    pages page.ps ps2write -dLastPage=1
    gs -q -dSAFER -dBATCH -dNOPAUSE -g400x300 -sDEVICE=eps2write -sOutputFile=figure.eps -c \
      '/Helvetica 40 selectfont 30 60 moveto (figure) show showpage'
    pages locked.pdf pdfwrite -sOwnerPassword=owner -sUserPassword=word -dEncryptionR=3 -dKeyLength=128
    echo word >word
    pages page.pwg pwgraster -dLastPage=1
    pages scan.tif tiff24nc
    pages page.png png16m -dLastPage=1
    { printf 'P5\n400 300\n1\n' && head -c 120000 /dev/zero; } >mask.png
    mkdir pictures photos
    cp photo.jpg page.png pictures
    cp photo.jpg photos/a.jpg
    cp photo.jpg photos/b.jpg
    $print -o planes.tif --contone -m 108
    mv planes-contone.tif inks.tif
    echo '<svg xmlns="http://www.w3.org/2000/svg" width="20mm" height="20mm"><rect width="90" height="9"/></svg>' \
      >drawing.svg
    ;;
esac
