"""mailservers.py CACHE CERTIFICATES MAILBOX SINK: the mail servers of Debian, unpacked below CACHE rather than installed,
since their packages exclude each other; what is missing there is fetched if it can be. Each runs with a configuration of
its own on ports of the loopback interface, which are printed; what cannot run is named with the reason. All hand their
mail to the port SINK, whose mailbox is MAILBOX. Needs root, for a mount namespace in which their users exist. Ends when
its standard input does."""

import glob
import os
import shutil
import socket
import subprocess
import sys
import time

CACHE, CERTIFICATES, FOLDER, SINK = sys.argv[1:5]
LIBRARIES = "usr/lib/x86_64-linux-gnu"
PACKAGES = {
    "exim": ["exim4-base", "exim4-daemon-light", "libgnutls-dane0", "libidn12", "libunbound8", "libevent-2.1-7"],
    "postfix": ["postfix", "libnsl2", "libtirpc3", "libsasl2-2", "libicu72", "libsasl2-modules", "libsasl2-modules-db",
                "sasl2-bin", "libdb5.3"],
    "opensmtpd": ["opensmtpd", "libevent-2.1-7"],
}
USERS = {"Debian-exim": 901, "postfix": 902, "postdrop": 903, "opensmtpd": 904, "opensmtpq": 905}
children = []


EXIM = """
primary_hostname = localhost
exim_path = @EXIM@
spool_directory = @WORK@/spool
log_file_path = @WORK@/%s.log
local_interfaces = 127.0.0.1
daemon_smtp_ports = @PORTS@
tls_on_connect_ports = @EXIM-TLS@
keep_environment =
host_lookup =
tls_advertise_hosts = *
tls_certificate = @WORK@/good.crt
tls_privatekey = @WORK@/server.key
acl_smtp_rcpt = recipient
acl_smtp_data = accept
begin acl
recipient:
  deny message = No such user
       local_parts = nobody
  accept condition = ${if match{$received_port}{^(@EXIM-OPEN@|@EXIM-SMART@)\$}}
  deny message = not without logging in
       !authenticated = *
  accept
begin routers
next:
  driver = manualroute
  route_list = * 127.0.0.1
  self = send
  transport = next
begin transports
next:
  driver = smtp
  port = @NEXT@
  hosts_avoid_tls = *
begin retry
* * F,1h,1s
begin authenticators
cram:
  driver = cram_md5
  public_name = CRAM-MD5
  server_secret = ${if eq{$auth1}{user}{pa ss}fail}
  server_set_id = $auth1
  server_advertise_condition = ${if eq{$received_port}{@EXIM-AUTH@}}
plain:
  driver = plaintext
  public_name = PLAIN
  server_prompts = :
  server_condition = ${if and {{eq{$auth2}{user}} {eq{$auth3}{pa ss}}}}
  server_set_id = $auth2
  server_advertise_condition = ${if eq{$received_port}{@EXIM-TLS@}}
login:
  driver = plaintext
  public_name = LOGIN
  server_prompts = Username:: : Password::
  server_condition = ${if and {{eq{$auth1}{user}} {eq{$auth2}{pa ss}}}}
  server_set_id = $auth1
  server_advertise_condition = ${if eq{$received_port}{@EXIM-OPEN@}}
"""


def filled(text, values):
    for name, value in values.items():
        text = text.replace(f"@{name}@", str(value))
    return text


def in_namespace():
    """Once more, where mounts are nobody else's."""
    if os.environ.get("OWN_MOUNTS") == "1":
        return
    os.environ["OWN_MOUNTS"] = "1"
    os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", sys.executable, *sys.argv])


def make_users():
    for name, form in (("passwd", "{0}:x:{1}:{1}::/var/lib/opensmtpd/empty:/bin/sh\n"), ("group", "{0}:x:{1}:\n")):
        text = open("/etc/" + name).read()
        text += "".join(form.format(*user) for user in USERS.items() if f"\n{user[0]}:" not in text)
        write(name, text)
        os.chmod(f"{FOLDER}/{name}", 0o644)
        subprocess.run(["mount", "--bind", f"{FOLDER}/{name}", "/etc/" + name], check=True)


def unpacked(name):
    """The folder of a server's packages."""
    folder = f"{CACHE}/{name}"
    if os.path.exists(folder + "/done") and open(folder + "/done").read().split() == PACKAGES[name]:
        return folder
    fetched = f"{CACHE}/fetched"
    os.makedirs(fetched, exist_ok=True)
    for package in PACKAGES[name]:
        if not glob.glob(f"{fetched}/{package}_*.deb"):
            subprocess.run(["apt-get", "-qq", "download", package], cwd=fetched, check=True, timeout=120,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        subprocess.run(["dpkg", "-x", glob.glob(f"{fetched}/{package}_*.deb")[0], folder], check=True)
    with open(folder + "/done", "w") as done:
        done.write("\n".join(PACKAGES[name]))
    return folder


def write(path, text):
    path = f"{FOLDER}/{path}"
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w") as file:
        file.write(text)
    return path


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def start(arguments, environment, ports):
    """Runs until this ends; back once every port answers."""
    log = open(f"{FOLDER}/{os.path.basename(arguments[0])}.out", "ab")
    children.append(subprocess.Popen(["setpriv", "--pdeathsig", "KILL", *arguments], stdin=subprocess.DEVNULL,
                                     stdout=log, stderr=log, env={**os.environ, **environment}))
    for port in ports:
        until = time.monotonic() + 15
        while True:
            try:
                socket.create_connection(("127.0.0.1", port), 1).close()
                break
            except OSError:
                if time.monotonic() > until or children[-1].poll() is not None:
                    raise RuntimeError("does not start: " + open(log.name).read()[-300:])
                time.sleep(0.05)


def exim(ports):
    """"exim" wants a login but on its open port, "exim-smart" hands over to a smart host, which is "exim"."""
    folder = unpacked("exim")
    # It runs with rights that are not its caller's, and finds libraries nowhere else then.
    conf = write("ld.so.conf", f"{folder}/{LIBRARIES}\ninclude /etc/ld.so.conf\n")
    cache = f"{FOLDER}/ld.so.cache"
    subprocess.run(["ldconfig", "-X", "-f", conf, "-C", cache], check=True, stderr=subprocess.DEVNULL)
    subprocess.run(["mount", "--bind", cache, "/etc/ld.so.cache"], check=True)
    ports.update({name: free_port() for name in ("exim-open", "exim-auth", "exim-tls", "exim-smart")})
    for name, listens, next_port in (("exim", ("exim-open", "exim-auth", "exim-tls"), SINK),
                                     ("exim-smart", ("exim-smart",), ports["exim-open"])):
        work = f"{FOLDER}/{name}"
        os.makedirs(work + "/spool")
        for file in ("good.crt", "server.key"):
            shutil.copy(f"{CERTIFICATES}/{file}", work)
            os.chmod(f"{work}/{file}", 0o644)
        config = write(f"{name}/exim.conf", filled(EXIM, {
            **{port.upper(): ports[port] for port in ports}, "WORK": work, "NEXT": next_port, "EXIM": f"{folder}/usr/sbin/exim4",
            "PORTS": " : ".join(str(ports[port]) for port in listens)}))
        subprocess.run(["chown", "-R", "Debian-exim", work], check=True)
        # A configuration that others could write is none.
        os.chown(config, 0, 0)
        start([f"{folder}/usr/sbin/exim4", "-C", config, "-bdf", "-q1s"], {}, [ports[port] for port in listens])


def postfix(ports):
    """With all that it has against clients which talk out of turn. "postfix-auth" and "postfix-tls" want a login, which
    "postfix-tls" takes by LOGIN alone; Cyrus SASL knows the user."""
    folder = unpacked("postfix")
    daemons = f"{folder}/usr/lib/postfix/sbin"
    libraries = f"{folder}/usr/lib/postfix:{folder}/{LIBRARIES}"
    queue, data = f"{FOLDER}/postfix/queue", f"{FOLDER}/postfix/data"
    ports.update({name: free_port() for name in ("postfix", "postfix-auth", "postfix-tls")})
    users = f"{FOLDER}/postfix/sasl/users"
    write("postfix/sasl/smtpd.conf", f"pwcheck_method: auxprop\nauxprop_plugin: sasldb\nsasldb_path: {users}\n"
          "mech_list: PLAIN LOGIN CRAM-MD5\n")
    sasl = {"LD_LIBRARY_PATH": libraries, "SASL_PATH": f"{folder}/{LIBRARIES}/sasl2"}
    subprocess.run([f"{folder}/usr/sbin/saslpasswd2", "-p", "-c", "-f", users, "-u", "localhost", "user"], check=True,
                   input=b"pa ss", env={**os.environ, **sasl}, stderr=subprocess.DEVNULL)
    os.chmod(users, 0o644)
    write("postfix/main.cf", f"""
compatibility_level = 3.6
queue_directory = {queue}
data_directory = {data}
command_directory = {folder}/usr/sbin
daemon_directory = {daemons}
mail_owner = postfix
setgid_group = postdrop
myhostname = localhost
mydestination =
inet_interfaces = 127.0.0.1
inet_protocols = ipv4
relay_domains = example.com
relay_transport = smtp:[127.0.0.1]:{SINK}
local_transport = error
local_recipient_maps =
alias_maps =
alias_database =
smtp_dns_support_level = disabled
smtpd_data_restrictions = reject_unauth_pipelining
smtpd_relay_restrictions = reject_unauth_pipelining, reject_unauth_destination
smtpd_forbid_bare_newline = yes
smtpd_tls_cert_file = {CERTIFICATES}/good.crt
smtpd_tls_key_file = {CERTIFICATES}/server.key
smtpd_tls_security_level = may
cyrus_sasl_config_path = {FOLDER}/postfix/sasl
smtpd_sasl_local_domain = localhost
smtpd_sasl_security_options = noanonymous
import_environment = LD_LIBRARY_PATH SASL_PATH MAIL_CONFIG TZ
export_environment = LD_LIBRARY_PATH SASL_PATH MAIL_CONFIG TZ
maillog_file = {FOLDER}/postfix/log
maillog_file_prefixes = {FOLDER}
""")
    login = " -o smtpd_sasl_auth_enable=yes -o smtpd_relay_restrictions=permit_sasl_authenticated,reject"
    services = [(f"127.0.0.1:{ports['postfix']}", "inet", "smtpd", ""),
                (f"127.0.0.1:{ports['postfix-auth']}", "inet", "smtpd", login),
                (f"127.0.0.1:{ports['postfix-tls']}", "inet", "smtpd",
                 f"{login} -o smtpd_tls_wrappermode=yes -o smtpd_sasl_mechanism_filter=login")]
    services += [(name, kind, program, "") for name, kind, program in (
        ("pickup", "unix", "pickup"), ("cleanup", "unix", "cleanup"), ("qmgr", "unix", "qmgr"),
        ("tlsmgr", "unix", "tlsmgr"), ("rewrite", "unix", "trivial-rewrite"), ("bounce", "unix", "bounce"),
        ("defer", "unix", "bounce"), ("trace", "unix", "bounce"), ("verify", "unix", "verify"),
        ("flush", "unix", "flush"), ("smtp", "unix", "smtp"), ("relay", "unix", "smtp"), ("error", "unix", "error"),
        ("retry", "unix", "error"), ("proxymap", "unix", "proxymap"), ("anvil", "unix", "anvil"), ("scache", "unix", "scache"))]
    services.append(("postlog", "unix-dgram", "postlogd", ""))
    # The programs insist on these limits of processes.
    many = ("cleanup", "bounce", "defer", "trace", "flush")
    single = ("qmgr", "pickup", "postlog", "tlsmgr", "scache", "anvil", "verify")
    private = {"cleanup": "n", "qmgr": "n", "flush": "n", "pickup": "n", "postlog": "n"}
    write("postfix/master.cf", "".join(
        f"{name} {kind} {private.get(name, 'n' if kind == 'inet' else '-')} - n - {1 if name in single else 0 if name in many else '-'}"
        f" {program}{more}\n" for name, kind, program, more in services))
    for name in ("active", "bounce", "corrupt", "defer", "deferred", "flush", "hold", "incoming", "pid", "private",
                 "public", "maildrop", "saved", "trace"):
        os.makedirs(f"{queue}/{name}")
    os.makedirs(data)
    subprocess.run(["chown", "-R", "postfix", queue, data], check=True)
    subprocess.run(["chown", "root", queue, queue + "/pid"], check=True)
    start([f"{daemons}/master", "-c", f"{FOLDER}/postfix", "-d"], sasl,
          [ports[name] for name in ("postfix", "postfix-auth", "postfix-tls")])


def opensmtpd(ports):
    """It hangs up on who does not wait for its answers. In clear and without login, which it offers under TLS alone: with
    the OpenSSL of Debian 12 the engine that asks its process for keys finds none ("missing private key"), whatever the key
    and the version of TLS, and every handshake ends by an internal error of the server."""
    folder = unpacked("opensmtpd")
    ports["opensmtpd"] = free_port()
    for path in ("/usr/libexec", "/var/spool", "/var/lib", "/run"):
        subprocess.run(["mount", "-t", "tmpfs", "none", path], check=True)
    shutil.copytree(f"{folder}/usr/libexec/opensmtpd", "/usr/libexec/opensmtpd")
    os.makedirs("/var/lib/opensmtpd/empty", 0o755)
    os.makedirs("/var/spool/smtpd", 0o711)
    config = write("smtpd.conf", f"""
listen on 127.0.0.1 port {ports["opensmtpd"]}
action "next" relay host "smtp://127.0.0.1:{SINK}"
match from any for any action "next"
""")
    os.chmod(config, 0o600)
    start([f"{folder}/usr/sbin/smtpd", "-d", "-f", config], {"LD_LIBRARY_PATH": f"{folder}/{LIBRARIES}"},
          [ports["opensmtpd"]])
    print("opensmtpd-tls!unpacked,_its_engine_finds_no_private_key_with_the_OpenSSL_of_Debian_12", end=" ")


def main():
    in_namespace()
    make_users()
    os.chmod(FOLDER, 0o755)
    ports = {}
    for server in (exim, postfix, opensmtpd):
        try:
            server(ports)
        except Exception as failure:  # whatever it is, the others may run
            ports = {name: port for name, port in ports.items() if not name.startswith(server.__name__)}
            reason = " ".join(str(failure).split())
            print(f"{server.__name__}!{reason.replace(' ', '_')[:300]}", end=" ")
    print(*(f"{name}={port}" for name, port in ports.items()), flush=True)
    sys.stdin.read()
    for child in children:
        child.terminate()


main()
