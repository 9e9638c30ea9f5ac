# certificates.sh FOLDER: two authorities, one of them to be trusted, and a server's certificates, all with one key.
set -eu
cd "$1"
key() { openssl ecparam -name prime256v1 -genkey -noout -out "$1"; }
authority() {
  key "$1.key"
  openssl req -x509 -new -key "$1.key" -days 2 -subj "/CN=$2" -out "$1.crt" \
    -addext keyUsage=critical,keyCertSign,cRLSign
}
server() { # file, authority, names, days
  openssl req -new -key server.key -subj "/CN=$1" -out server.csr
  printf 'subjectAltName=%s\nextendedKeyUsage=serverAuth\n' "$3" > server.ext
  openssl x509 -req -in server.csr -CA "$2.crt" -CAkey "$2.key" -CAcreateserial -days "$4" -extfile server.ext \
    -out "$1.crt"
}
authority trusted "Test Authority"
authority stranger "Another Authority"
key server.key
server good trusted DNS:localhost,IP:127.0.0.1 2
server misnamed trusted DNS:mail.example.com 2
server expired trusted DNS:localhost -1
server unknown stranger DNS:localhost 2
