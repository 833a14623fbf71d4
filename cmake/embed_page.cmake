# Pages of HTML that the program writes: each is one file, with its style and its script inside.

# The SHA-256 of a text, as a content security policy names what it allows.
function(quarlo_policy_hash result text)
  string(SHA256 hex "${text}")
  string(APPEND hex 00)  # 33 bytes are whole groups of three
  set(digits ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
  set(base64 "")
  foreach(start RANGE 0 60 6)
    string(SUBSTRING ${hex} ${start} 6 group)
    foreach(shift IN ITEMS 18 12 6 0)
      math(EXPR digit "(0x${group} >> ${shift}) & 63")
      string(SUBSTRING ${digits} ${digit} 1 digit)
      string(APPEND base64 ${digit})
    endforeach()
  endforeach()
  string(REGEX REPLACE "A$" "=" base64 ${base64})
  set(${result} "'sha256-${base64}'" PARENT_SCOPE)
endfunction()

# Writes to `file` the page whose parts are page.html, page.css and page.js in the directory `parts`, in two literals: what
# comes before its data, and what comes after. All pages share tools/common/page/page.css and page.js, which come first. The
# page may run this script and use this style, and nothing else: it asks no network, and what its data say is text. Comments
# that have a line of their own and what lines begin with are left out: the script has no text of several lines.
function(quarlo_embed_page file parts)
  set(shared ${PROJECT_SOURCE_DIR}/tools/common/page)
  set(sources ${parts}/page.html ${shared}/page.css ${parts}/page.css ${shared}/page.js ${parts}/page.js)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${sources})
  file(READ ${parts}/page.html page)
  foreach(part IN ITEMS css js)
    file(READ ${shared}/page.${part} common)
    file(READ ${parts}/page.${part} own)
    set(${part} "\n${common}${own}")
    string(REGEX REPLACE "\n( *(//[^\n]*)?\n)* *" "\n" ${part} "${${part}}")
    if("${css}${js}" MATCHES "</|<!--|\\)page\"")
      message(FATAL_ERROR "${parts}/page.${part} or ${shared}/page.${part} would end what it stands in: ${CMAKE_MATCH_0}")
    endif()
  endforeach()
  quarlo_policy_hash(style "${css}")
  quarlo_policy_hash(script "${js}")
  string(CONCAT policy "default-src 'none'; script-src ${script}; style-src ${style}; base-uri 'none'; "
    "form-action 'none'; require-trusted-types-for 'script'")
  string(REPLACE "<!-- policy -->" "<meta http-equiv=\"Content-Security-Policy\" content=\"${policy}\">" page "${page}")
  string(REPLACE "<!-- style -->" "<style>${css}</style>" page "${page}")
  string(REPLACE "<!-- script -->" "<script>${js}</script>" page "${page}")
  string(REPLACE "<!-- data -->" "<script type=\"application/json\" id=\"data\">)page\"sv,\nR\"page(</script>"
    page "${page}")
  set(lines "R\"page(${page})page\"sv\n")
  file(CONFIGURE OUTPUT ${file} CONTENT "@lines@" @ONLY)
endfunction()
