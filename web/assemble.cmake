# Puts the folder of static files together: the page's own files, what stands for its server, the
# engine. Files change their address in the browser's store with their contents: STATE.
# -DSOURCE= -DMODULE= -DSITE=
file(REMOVE_RECURSE ${SITE})
file(GLOB page ${SOURCE}/apps/view/page/*)
foreach(name IN ITEMS server.js watch.html watch.js)
  list(REMOVE_ITEM page ${SOURCE}/apps/view/page/${name})
endforeach()
file(GLOB ours ${SOURCE}/web/page/*)
file(COPY ${page} ${ours} DESTINATION ${SITE})
configure_file(${MODULE} ${SITE}/orvanite.wasm COPYONLY)

set(policy "default-src 'none'; script-src 'self' 'wasm-unsafe-eval'; style-src 'self'; img-src 'self' data: blob:; connect-src 'self'; worker-src 'self'; manifest-src 'self'; base-uri 'none'; form-action 'self'")
file(READ ${SITE}/index.html html)
set(style "<link rel=\"stylesheet\" href=\"style.css\">")
string(FIND "${html}" "${style}" at)
if(at EQUAL -1)
  message(FATAL_ERROR "index.html: expected ${style}, after which the static page's own lines go")
endif()
string(REPLACE "${style}" "<meta http-equiv=\"Content-Security-Policy\" content=\"${policy}\">
<meta name=\"referrer\" content=\"no-referrer\">
<link rel=\"manifest\" href=\"manifest.webmanifest\">
${style}
<link rel=\"stylesheet\" href=\"open.css\">" html "${html}")
file(WRITE ${SITE}/index.html "${html}")

file(GLOB names RELATIVE ${SITE} ${SITE}/*)
list(REMOVE_ITEM names service.js)
set(state "")
foreach(name IN LISTS names)
  file(SHA256 ${SITE}/${name} hash)
  string(APPEND state "${name} ${hash}\n")
endforeach()
string(SHA256 state "${state}")
string(SUBSTRING ${state} 0 16 state)
list(JOIN names "', '" files)
file(READ ${SITE}/service.js service)
string(REPLACE "@FILES@" "./', '${files}" service "${service}")
string(REPLACE "@STATE@" "${state}" service "${service}")
file(WRITE ${SITE}/service.js "${service}")
