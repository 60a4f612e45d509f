-- => {title:"Other", size:2}
set r to {title:"Example", size:2}
set title of r to "Other"
r
