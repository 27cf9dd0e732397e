// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/servers.h"

#include <algorithm>
#include <array>
#include <set>

#include "base/text.h"
#include "helmsman/settings/service_links.h"
#include "host/files/files.h"
#include "product/descriptor_keys.h"
#include "product/service_names.h"

namespace halyard::hostkit {

namespace {

struct Server {
  std::string_view service;  // Empty: no service covers it.
  const char* name;
  const char* program;  // Its presence shows the server; a folder serves as well.
};

constexpr std::array<Server, 44> kServers = {{
    {"rosterHost", "slapd", "/usr/sbin/slapd"},
    {"rosterHost", "the flat directory", "/var/lib/roster/roster.ldif"},
    {"postHost", "Postfix", "/usr/sbin/postfix"},
    {"postHost", "Dovecot", "/usr/sbin/dovecot"},
    {"agendaHost", "Radicale", "/usr/bin/radicale"},
    {"parleyHost", "Prosody", "/usr/bin/prosody"},
    {"depotHost", "Samba", "/usr/sbin/smbd"},
    {"depotHost", "the NFS server", "/usr/sbin/rpc.nfsd"},
    {"siteHost", "nginx", "/usr/sbin/nginx"},
    {"siteHost", "Apache", "/usr/sbin/apache2"},
    {"ledgerHost", "PostgreSQL", "/usr/lib/postgresql"},
    {"ledgerHost", "MariaDB", "/usr/sbin/mariadbd"},
    {"ledgerHost", "MySQL", "/usr/sbin/mysqld"},
    {"ledgerHost", "Redis", "/usr/bin/redis-server"},
    {"", "MongoDB", "/usr/bin/mongod"},
    {"", "InfluxDB", "/usr/bin/influxd"},
    {"", "CouchDB", "/opt/couchdb/bin/couchdb"},
    {"", "Elasticsearch", "/usr/share/elasticsearch/bin/elasticsearch"},
    {"", "RabbitMQ", "/usr/sbin/rabbitmq-server"},
    {"", "Mosquitto", "/usr/sbin/mosquitto"},
    {"", "ejabberd", "/usr/sbin/ejabberdctl"},
    {"", "Exim", "/usr/sbin/exim4"},
    {"", "OpenSMTPD", "/usr/sbin/smtpd"},
    {"", "Cyrus IMAP", "/usr/sbin/cyrmaster"},
    {"", "Mailman", "/usr/bin/mailman"},
    {"", "BIND", "/usr/sbin/named"},
    {"", "PowerDNS", "/usr/sbin/pdns_server"},
    {"", "dnsmasq", "/usr/sbin/dnsmasq"},
    {"", "ISC DHCP", "/usr/sbin/dhcpd"},
    {"", "Kea DHCP", "/usr/sbin/kea-dhcp4"},
    {"", "FreeRADIUS", "/usr/sbin/freeradius"},
    {"", "Kerberos KDC", "/usr/sbin/krb5kdc"},
    {"", "lighttpd", "/usr/sbin/lighttpd"},
    {"", "Caddy", "/usr/bin/caddy"},
    {"", "Squid", "/usr/sbin/squid"},
    {"", "HAProxy", "/usr/sbin/haproxy"},
    {"", "vsftpd", "/usr/sbin/vsftpd"},
    {"", "ProFTPD", "/usr/sbin/proftpd"},
    {"", "CUPS", "/usr/sbin/cupsd"},
    {"", "Docker", "/usr/bin/dockerd"},
    {"", "Docker", "/usr/sbin/dockerd"},
    {"", "libvirt", "/usr/sbin/libvirtd"},
    {"", "Gitea", "/usr/bin/gitea"},
    {"", "OpenVPN", "/usr/sbin/openvpn"},
}};

struct PlainWord {
  std::string_view word;
  std::string_view service;
};

constexpr std::array<PlainWord, 8> kWords = {{{"directory", "rosterHost"},
                                              {"mail", "postHost"},
                                              {"calendar", "agendaHost"},
                                              {"chat", "parleyHost"},
                                              {"shares", "depotHost"},
                                              {"web", "siteHost"},
                                              {"host", "hostProfile"},
                                              {"databases", "ledgerHost"}}};

// Every host has settings of its own.
constexpr std::string_view kHostService = "hostProfile";
constexpr std::string_view kShippedPlugins = "/usr/libexec/halyard/";

bool holdsAnything(const std::string& path) {
  return host::isDirectory(path) ? !host::listDirectory(path).empty() : host::exists(path);
}

std::set<std::string> servicesThatAreBackedUp() {
  const PropertyDictionary services = servicePreferences();
  std::set<std::string> names;
  for (const InstalledDescriptor& descriptor : installedDescriptors()) {
    if (isBackedUp(services, descriptor.serviceName())) names.insert(descriptor.serviceName());
  }
  return names;
}

}  // namespace

std::optional<std::string_view> serviceOfWord(std::string_view word) {
  for (const PlainWord& one : kWords) {
    if (equalsIgnoringCase(one.word, word)) return one.service;
  }
  return std::nullopt;
}

std::string_view wordOfService(std::string_view service) {
  for (const PlainWord& one : kWords) {
    if (one.service == service) return one.word;
  }
  return {};
}

std::string plainWords() {
  std::string text;
  for (const PlainWord& one : kWords) {
    // Named where there is such a service only.
    if (!isKnownService(one.service)) continue;
    if (!text.empty()) text += ", ";
    text.append(one.word).append(" (").append(one.service).append(")");
  }
  return text;
}

bool isOnThisHost(const InstalledDescriptor& descriptor) {
  const std::string service = descriptor.serviceName();
  const std::string plugin = std::string(kShippedPlugins) + service;
  const bool tabled = std::any_of(kServers.begin(), kServers.end(),
                                  [&](const Server& server) { return server.service == service; });
  if (service == kHostService || !tabled ||
      descriptor.content.text(descriptor_keys::kBackupBinaryPath).value_or("") != plugin) {
    return true;
  }
  const bool served = std::any_of(kServers.begin(), kServers.end(), [&](const Server& server) {
    return server.service == service && host::exists(server.program);
  });
  const auto data =
      descriptor.content.texts(descriptor_keys::kDataFiles).value_or(std::vector<std::string>{});
  return served || std::any_of(data.begin(), data.end(), &holdsAnything);
}

std::vector<UncoveredServer> uncoveredServers() {
  const std::set<std::string> covered = servicesThatAreBackedUp();
  std::vector<UncoveredServer> servers;
  std::set<std::string> seen;  // One program may have several names.
  for (const Server& server : kServers) {
    if (covered.contains(std::string(server.service)) || !host::exists(server.program)) continue;
    if (!seen.insert(host::realPath(server.program).value_or(server.program)).second) continue;
    const bool canBeCovered = isKnownService(server.service) || isShipped(server.service);
    servers.push_back(
        {server.name, server.program, canBeCovered ? std::string(server.service) : ""});
  }
  return servers;
}

std::string describe(const UncoveredServer& server) {
  if (!server.service.empty()) {
    return server.name + " is on this host (" + server.program + ") and " + server.service +
           " is off (see: helmsman enable " + std::string(wordOfService(server.service)) + ")";
  }
  return server.name + " is on this host (" + server.program +
         ") and no service covers it: a snapshot has its files as they happen to lie";
}

}  // namespace halyard::hostkit
