-- => {true, 30}
set bought to date "2026-01-01 00:00:00"
set expires to bought + 30 * days
{expires > bought, (expires - bought) div days}
