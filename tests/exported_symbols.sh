#!/usr/bin/env bash
# Fails if the shared library shows a symbol outside its namespace, or hides a class of its own.
set -euo pipefail

symbols=$(nm -DC --defined-only "$1" | cut -d' ' -f3-)
foreign=$(grep -vE '^((typeinfo( name)?|vtable|VTT) for |(virtual|non-virtual) thunk to )?tarnix_cmn_4_4::' \
    <<<"$symbols" | grep -vxE 'TxSet(Registry|Rights)File\(char const\*\)' || true)
if [ -n "$foreign" ]; then
    printf 'foreign symbols:\n%s\n' "$foreign"
    exit 1
fi
for wanted in 'CCmnStringTool::' 'CCmnTraceLog::trace(' 'CCmnConfiguration::importConfig(' \
    'CCmnPathTool::getInstallPath(' 'CCmnSGDConfiguration::getTraceLevel(' \
    'CCmnError::getMessageKey(' 'ECmnExecPipe::keyOf(' 'CCmnExecPipeBase::Exec(' \
    'CCmnExecPipeWindows::Init(' 'CCmnExecPipeWindows::m_Lock' 'CCmnIcuMessage::serialize(' \
    'CCmnIcuMessageCatalog::init(' 'CCmnMessageCatalogManager::getMessage('; do
    if ! grep -qF "tarnix_cmn_4_4::$wanted" <<<"$symbols"; then
        echo "not exported: $wanted"
        exit 1
    fi
done
echo "$(wc -l <<<"$symbols") symbols, all of tarnix_cmn_4_4"
