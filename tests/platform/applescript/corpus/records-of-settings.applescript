-- => {"Example", 3, "fast"}
set settings to {title:"Example", |max users|:3}
set settings to settings & {mode:"fast"}
{title of settings, |max users| of settings, mode of settings}
